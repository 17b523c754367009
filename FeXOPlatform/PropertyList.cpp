#include <FeXOPlatform/PropertyList.hpp>

#include <FeXOPlatform/PropertyListBinaryCheck.hpp>
#include <FeXOPlatform/PropertyListStack.hpp>
#include <FeXOPlatform/UTF8.hpp>

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <memory>
#include <string_view>

namespace fexo {

namespace {

struct PlistDeleter {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

struct FreeDeleter {
    void operator()(char* p) const { std::free(p); }
};
using CString = std::unique_ptr<char, FreeDeleter>;

// Deeply nested input is refused rather than walked recursively without bound.
constexpr int maximumDepth = 512;

// libplist holds a date as whole seconds in 32 bits, cut toward zero, and microseconds of the
// same sign; dates outside that range are kept at its ends, and a date that is not a number at
// the reference date.
double representableDate(double seconds)
{
    constexpr double earliest = std::numeric_limits<int32_t>::min() - 0.999999;
    constexpr double latest = std::numeric_limits<int32_t>::max() + 0.999999;
    if (std::isnan(seconds)) return 0;
    return std::clamp(seconds, earliest, latest);
}

std::optional<PropertyListValue> fromNode(plist_t node, int depth)
{
    if (node == nullptr || depth > maximumDepth) return std::nullopt;
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        uint64_t length = 0;
        const char* raw = plist_get_string_ptr(node, &length);
        std::string text(raw ? raw : "", raw ? length : 0);
        if (!isValidUTF8(text)) return std::nullopt; // text in a property list is Unicode
        return PropertyListValue(std::move(text));
    }
    case PLIST_UINT: {
        // libplist keeps integers unsigned; negative values come back in two's complement.
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return PropertyListValue(static_cast<std::int64_t>(value));
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return PropertyListValue(value);
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return PropertyListValue(value != 0);
    }
    case PLIST_DATE: {
        int32_t seconds = 0;
        int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        // The microseconds come back as a magnitude; they share the sign of the seconds (a
        // date less than a second before the reference date therefore reads as after it).
        const double fraction = std::abs(microseconds) / 1e6;
        return PropertyListValue(Date(representableDate(seconds + (seconds < 0 ? -fraction : fraction))));
    }
    case PLIST_DATA: {
        char* raw = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &raw, &length);
        CString bytes(raw);
        return PropertyListValue(PropertyListValue::Data{std::string(bytes ? bytes.get() : "", bytes ? length : 0)});
    }
    case PLIST_ARRAY: {
        PropertyListValue::Array array;
        const uint32_t count = plist_array_get_size(node);
        array.reserve(count);
        for (uint32_t i = 0; i < count; ++i) {
            auto element = fromNode(plist_array_get_item(node, i), depth + 1);
            if (!element) return std::nullopt;
            array.push_back(std::move(*element));
        }
        return PropertyListValue(std::move(array));
    }
    case PLIST_DICT: {
        PropertyListValue::Dictionary dictionary;
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        std::unique_ptr<void, decltype(&std::free)> iteratorOwner(iterator, &std::free);
        for (;;) {
            char* rawKey = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, iterator, &rawKey, &item);
            CString key(rawKey);
            if (!key || !item) break;
            if (!isValidUTF8(key.get())) return std::nullopt;
            auto value = fromNode(item, depth + 1);
            if (!value) return std::nullopt;
            dictionary.insert_or_assign(std::string(key.get()), std::move(*value));
        }
        return PropertyListValue(std::move(dictionary));
    }
    case PLIST_KEY:
    case PLIST_UID:
    case PLIST_NONE:
    default:
        return std::nullopt;
    }
}

// Nothing when the value holds text with U+0000, which libplist cannot write.
PlistPtr toNode(const PropertyListValue& value)
{
    switch (value.kind()) {
    case PropertyListValue::Kind::string:
        if (value.string()->find('\0') != std::string::npos) return nullptr;
        return PlistPtr(plist_new_string(value.string()->c_str()));
    case PropertyListValue::Kind::integer:
        return PlistPtr(plist_new_uint(static_cast<uint64_t>(*value.integer())));
    case PropertyListValue::Kind::real:
        return PlistPtr(plist_new_real(*value.real()));
    case PropertyListValue::Kind::boolean:
        return PlistPtr(plist_new_bool(*value.boolean() ? 1 : 0));
    case PropertyListValue::Kind::date: {
        const double seconds = representableDate(value.date()->timeIntervalSinceReferenceDate());
        const double whole = std::trunc(seconds);
        const double microseconds = std::clamp(std::round((seconds - whole) * 1e6), -999999.0, 999999.0);
        return PlistPtr(plist_new_date(static_cast<int32_t>(whole), static_cast<int32_t>(microseconds)));
    }
    case PropertyListValue::Kind::data: {
        const auto& bytes = value.data()->bytes;
        return PlistPtr(plist_new_data(bytes.data(), bytes.size()));
    }
    case PropertyListValue::Kind::array: {
        PlistPtr array(plist_new_array());
        for (const auto& element : *value.array()) {
            PlistPtr node = toNode(element);
            if (!node) return nullptr;
            plist_array_append_item(array.get(), node.release());
        }
        return array;
    }
    case PropertyListValue::Kind::dictionary: {
        PlistPtr dictionary(plist_new_dict());
        for (const auto& [key, element] : *value.dictionary()) {
            PlistPtr node = toNode(element);
            if (!node || key.find('\0') != std::string::npos) return nullptr;
            plist_dict_set_item(dictionary.get(), key.c_str(), node.release());
        }
        return dictionary;
    }
    }
    return nullptr;
}

} // namespace

std::optional<PropertyListValue> PropertyList::parse(std::string_view bytes)
{
    if (bytes.empty() || bytes.size() > maximumParseSize) return std::nullopt;
    std::optional<std::string> binary;
    if (bytes.starts_with("bplist00")) {
        binary = checkBinaryPropertyList(bytes, maximumDepth);
        if (!binary) return std::nullopt;
        bytes = *binary;
    }
    std::optional<PropertyListValue> value;
    auto work = [&] {
        plist_t raw = nullptr;
        plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &raw);
        PlistPtr root(raw);
        if (root) value = fromNode(root.get(), 0);
    };
    // A thread costs more to start than reading a small file such as the service's configuration,
    // hence the caller's stack whenever it is enough.
    if (const std::size_t stackSize = propertyListStackSize(bytes, binary.has_value()); stackSize == 0) {
        work();
    } else {
        runOnThreadWithStack(stackSize, work);
    }
    return value;
}

std::optional<PropertyListValue> PropertyList::readFile(const std::filesystem::path& path, std::size_t maximumSize)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    std::string bytes;
    char chunk[16384];
    while (file.read(chunk, sizeof chunk) || file.gcount() > 0) {
        bytes.append(chunk, static_cast<std::size_t>(file.gcount()));
        if (bytes.size() > maximumSize) return std::nullopt; // refused without reading on
    }
    if (file.bad()) return std::nullopt;
    return parse(bytes);
}

std::string PropertyList::serialize(const PropertyListValue& value, Format format)
{
    PlistPtr root = toNode(value);
    if (!root) return {};
    char* raw = nullptr;
    uint32_t length = 0;
    if (format == Format::xml) {
        plist_to_xml(static_cast<plist_t>(root.get()), &raw, &length);
    } else {
        plist_to_bin(static_cast<plist_t>(root.get()), &raw, &length);
    }
    CString owner(raw);
    return owner ? std::string(owner.get(), length) : std::string();
}

bool PropertyList::writeFile(const PropertyListValue& value, const std::filesystem::path& path, Format format)
{
    const std::string bytes = serialize(value, format);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) return false;
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(file.flush());
}

} // namespace fexo
