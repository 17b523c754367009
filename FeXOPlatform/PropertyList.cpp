#include <FeXOPlatform/PropertyList.hpp>

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
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

// Text in a property list is Unicode: bytes that are not well-formed UTF-8 (overlong forms,
// surrogates and values past U+10FFFF included) are refused, and so is U+0000, which neither
// form can write back.
bool isText(std::string_view text)
{
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == 0) return false;
        if (byte < 0x80) {
            ++i;
            continue;
        }
        std::size_t length = 0;
        std::uint32_t codePoint = 0;
        if (byte >= 0xC2 && byte <= 0xDF) {
            length = 2;
            codePoint = byte & 0x1Fu;
        } else if (byte >= 0xE0 && byte <= 0xEF) {
            length = 3;
            codePoint = byte & 0x0Fu;
        } else if (byte >= 0xF0 && byte <= 0xF4) {
            length = 4;
            codePoint = byte & 0x07u;
        } else {
            return false;
        }
        if (text.size() - i < length) return false;
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            codePoint = (codePoint << 6) | (next & 0x3Fu);
        }
        if ((length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000) || codePoint > 0x10FFFF ||
            (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
            return false;
        }
        i += length;
    }
    return true;
}

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

std::uint64_t readBigEndian(std::string_view bytes, std::size_t offset, std::size_t width)
{
    std::uint64_t value = 0;
    for (std::size_t k = 0; k < width; ++k) value = (value << 8) | static_cast<unsigned char>(bytes[offset + k]);
    return value;
}

// libplist ends the process (a failed assertion) when it hands out a key whose UTF-16 form
// holds U+0000, so such binary lists are refused before it parses them. False also for a
// binary list whose object table does not fit its bytes, which libplist refuses as well.
bool binaryTextIsReadable(std::string_view bytes)
{
    constexpr std::size_t headerSize = 8;
    constexpr std::size_t trailerSize = 32;
    if (bytes.size() < headerSize + trailerSize) return false;
    const std::size_t trailer = bytes.size() - trailerSize;
    const std::size_t offsetSize = static_cast<unsigned char>(bytes[trailer + 6]);
    const std::uint64_t objectCount = readBigEndian(bytes, trailer + 8, 8);
    const std::uint64_t tableOffset = readBigEndian(bytes, trailer + 24, 8);
    if (offsetSize < 1 || offsetSize > 8 || tableOffset > trailer ||
        objectCount > (trailer - tableOffset) / offsetSize) {
        return false;
    }
    for (std::uint64_t i = 0; i < objectCount; ++i) {
        const std::uint64_t object = readBigEndian(bytes, tableOffset + i * offsetSize, offsetSize);
        if (object >= trailer) continue;
        const auto marker = static_cast<unsigned char>(bytes[object]);
        if ((marker & 0xF0) != 0x60) continue; // not UTF-16 text
        std::uint64_t units = marker & 0x0F;
        std::size_t position = object + 1;
        if (units == 0x0F) {
            if (position >= trailer) continue;
            const auto sizeMarker = static_cast<unsigned char>(bytes[position]);
            const std::size_t width = std::size_t{1} << (sizeMarker & 0x0F);
            if ((sizeMarker & 0xF0) != 0x10 || width > 8 || trailer - position - 1 < width) continue;
            units = readBigEndian(bytes, position + 1, width);
            position += 1 + width;
        }
        if (units > (trailer - position) / 2) continue;
        for (std::uint64_t k = 0; k < units; ++k) {
            if (bytes[position + 2 * k] == 0 && bytes[position + 2 * k + 1] == 0) return false;
        }
    }
    return true;
}

std::optional<PropertyListValue> fromNode(plist_t node, int depth)
{
    if (node == nullptr || depth > maximumDepth) return std::nullopt;
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        uint64_t length = 0;
        const char* raw = plist_get_string_ptr(node, &length);
        std::string text(raw ? raw : "", raw ? length : 0);
        if (!isText(text)) return std::nullopt;
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
            if (!isText(key.get())) return std::nullopt;
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
        const double seconds = representableDate(value.date()->timeIntervalSinceReferenceDate());
        const double whole = std::trunc(seconds);
        const double microseconds = std::clamp(std::round((seconds - whole) * 1e6), -999999.0, 999999.0);
        return plist_new_date(static_cast<int32_t>(whole), static_cast<int32_t>(microseconds));
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
    if (bytes.starts_with("bplist00") && !binaryTextIsReadable(bytes)) return std::nullopt;
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
