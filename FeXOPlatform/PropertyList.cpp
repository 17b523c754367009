#include <FeXOPlatform/PropertyList.hpp>

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>

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

std::optional<PropertyListValue> fromNode(plist_t node, int depth)
{
    if (node == nullptr || depth > maximumDepth) return std::nullopt;
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        char* raw = nullptr;
        plist_get_string_val(node, &raw);
        CString text(raw);
        return PropertyListValue(std::string(text ? text.get() : ""));
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
        return PropertyListValue(Date(static_cast<double>(seconds) + microseconds / 1e6));
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

plist_t toNode(const PropertyListValue& value)
{
    switch (value.kind()) {
    case PropertyListValue::Kind::string:
        return plist_new_string(value.string()->c_str());
    case PropertyListValue::Kind::integer:
        return plist_new_uint(static_cast<uint64_t>(*value.integer()));
    case PropertyListValue::Kind::real:
        return plist_new_real(*value.real());
    case PropertyListValue::Kind::boolean:
        return plist_new_bool(*value.boolean() ? 1 : 0);
    case PropertyListValue::Kind::date: {
        const double seconds = value.date()->timeIntervalSinceReferenceDate();
        const double whole = std::floor(seconds);
        return plist_new_date(static_cast<int32_t>(whole), static_cast<int32_t>(std::lround((seconds - whole) * 1e6)));
    }
    case PropertyListValue::Kind::data: {
        const auto& bytes = value.data()->bytes;
        return plist_new_data(bytes.data(), bytes.size());
    }
    case PropertyListValue::Kind::array: {
        plist_t array = plist_new_array();
        for (const auto& element : *value.array()) plist_array_append_item(array, toNode(element));
        return array;
    }
    case PropertyListValue::Kind::dictionary: {
        plist_t dictionary = plist_new_dict();
        for (const auto& [key, element] : *value.dictionary()) plist_dict_set_item(dictionary, key.c_str(), toNode(element));
        return dictionary;
    }
    }
    return plist_new_dict();
}

} // namespace

std::optional<PropertyListValue> PropertyList::parse(std::string_view bytes)
{
    if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;
    plist_t raw = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &raw);
    PlistPtr root(raw);
    if (!root) return std::nullopt;
    return fromNode(root.get(), 0);
}

std::optional<PropertyListValue> PropertyList::readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) return std::nullopt;
    return parse(bytes);
}

std::string PropertyList::serialize(const PropertyListValue& value, Format format)
{
    PlistPtr root(toNode(value));
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
