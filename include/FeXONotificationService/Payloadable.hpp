#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/JSONCoding.hpp>

#include <optional>
#include <string>

namespace fexo {

// A request body: a record that can be encoded to JSON and gives its bytes through payload().
class FEXO_EXPORT Payloadable {
public:
    virtual ~Payloadable();

    // The body's compact JSON bytes: the record is encoded, read back as a generic JSON value
    // and written again, so that the bytes that leave the library are those of the generic
    // writer (key order carries no meaning). On failure prints the error's description as one
    // line to standard output and gives nothing. Never throws.
    std::optional<std::string> payload() const;

protected:
    Payloadable() = default;
    Payloadable(const Payloadable&) = default;
    Payloadable& operator=(const Payloadable&) = default;

    // The record as a JSON value; throws EncodingError when a field cannot be written.
    virtual void encode(nlohmann::json& json) const = 0;
};

} // namespace fexo
