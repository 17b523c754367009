#include <FeXOPlatform/JSONDecoder.hpp>

#include <cstring>

namespace fexo {

coding::Json JSONDecoder::parse(std::string_view data)
{
    coding::Json root;
    try {
        root = coding::Json::parse(data.begin(), data.end());
    } catch (const coding::Json::exception& error) {
        throw DecodingError::dataCorrupted(std::string("The given data was not valid JSON. ") + error.what());
    }
    // The parser takes a NUL byte for the end of its input, so a value followed by a NUL and
    // anything at all would pass. JSON text never holds a raw NUL (not even inside a string),
    // and a NUL inside the value has already failed above, so any NUL left is after the value.
    if (const void* nul = std::memchr(data.data(), '\0', data.size())) {
        const auto offset = static_cast<const char*>(nul) - data.data();
        throw DecodingError::dataCorrupted("The given data was not valid JSON. Unexpected character U+0000 at offset " +
                                           std::to_string(offset) + " after the JSON value.");
    }
    return root;
}

} // namespace fexo
