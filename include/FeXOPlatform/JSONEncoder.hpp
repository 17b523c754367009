#pragma once

#include <FeXOPlatform/EncodingError.hpp>
#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/JSONCoding.hpp>

#include <string>

namespace fexo {

// Encodes one record as compact JSON bytes (no blanks, no line breaks, key order carrying no
// meaning), with the platform encoder's default settings. Throws EncodingError, and nothing
// else, for a value that JSON cannot hold. Stateless.
class JSONEncoder {
public:
    template <class T>
    std::string encode(const T& value) const
    {
        coding::Json root;
        coding::encodeValue(root, value);
        return serialize(root);
    }

    // Compact text of a value tree; EncodingError for text that is not valid UTF-8.
    FEXO_EXPORT static std::string serialize(const coding::Json& value);
};

} // namespace fexo
