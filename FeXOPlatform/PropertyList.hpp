#pragma once

#include <FeXOPlatform/PropertyListValue.hpp>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace fexo {

// Reading and writing property lists in the XML and the binary form.
class PropertyList {
public:
    enum class Format {
        xml,
        binary
    };

    // Inputs larger than this are refused unread.
    static constexpr std::size_t maximumParseSize = std::size_t{8} << 20;

    // The value tree of a property list in either form, or nothing when the bytes are not a
    // property list. Any kind of value may stand at the top level. Text is kept byte for byte,
    // U+0000 included. Bounded for hostile input: no nesting can exhaust the caller's stack (the
    // parse runs on a thread of its own, sized from the input, which it joins before returning),
    // and a binary list whose shared objects would expand past one node per byte of input is
    // refused, so the tree stays within a small multiple of the input's size. Throws
    // std::bad_alloc when memory or a thread cannot be had. Any thread.
    static std::optional<PropertyListValue> parse(std::string_view bytes);
    // parse() of a file's content; nothing when the file cannot be read or holds more than
    // `maximumSize` bytes (then it is not parsed at all).
    static std::optional<PropertyListValue> readFile(const std::filesystem::path& path,
                                                     std::size_t maximumSize = maximumParseSize);

    // Empty when the value holds text with U+0000 (in a string or a key), which this writer
    // cannot write.
    static std::string serialize(const PropertyListValue& value, Format format);
    // Writes the whole file anew; false when it cannot be written.
    static bool writeFile(const PropertyListValue& value, const std::filesystem::path& path, Format format);
};

} // namespace fexo
