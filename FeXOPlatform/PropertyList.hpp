#pragma once

#include <FeXOPlatform/PropertyListValue.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace fexo {

// Reading and writing property lists in the XML and the binary form.
class PropertyList {
public:
    enum class Format { xml, binary };

    // The value tree of a property list in either form, or nothing when the bytes are not a
    // property list. Any kind of value may stand at the top level.
    static std::optional<PropertyListValue> parse(std::string_view bytes);
    // parse() of a file's content; nothing when the file cannot be read.
    static std::optional<PropertyListValue> readFile(const std::filesystem::path& path);

    static std::string serialize(const PropertyListValue& value, Format format);
    // Writes the whole file anew; false when it cannot be written.
    static bool writeFile(const PropertyListValue& value, const std::filesystem::path& path, Format format);
};

} // namespace fexo
