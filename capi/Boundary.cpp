#include <capi/Boundary.hpp>

#include <FeXOPlatform/CocoaError.hpp>
#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/EncodingError.hpp>
#include <FeXOPlatform/URLError.hpp>

#include <cstdlib>
#include <cstring>

namespace fexo::capi {

namespace {

// The codes the platform gives these errors when they travel as its general error kind.
constexpr std::int64_t coderReadCorrupt = 4864;
constexpr std::int64_t coderValueNotFound = 4865;
constexpr std::int64_t coderInvalidValue = 4866;
constexpr const char* cocoaDomain = "NSCocoaErrorDomain";

} // namespace

fexo_error describe(const ErrorBase& error)
{
    fexo_error result{FEXO_ERROR_INTERNAL, libraryDomain, FEXO_ERROR_INTERNAL, error.localizedDescription(),
                      error.description()};
    if (const auto* transport = dynamic_cast<const URLError*>(&error)) {
        result.status = FEXO_ERROR_TRANSPORT;
        result.domain = URLError::domain;
        result.code = transport->code();
    } else if (const auto* decoding = dynamic_cast<const DecodingError*>(&error)) {
        const bool missing = decoding->kind() == DecodingError::Kind::keyNotFound ||
                             decoding->kind() == DecodingError::Kind::valueNotFound;
        result.status = FEXO_ERROR_DECODING;
        result.domain = cocoaDomain;
        result.code = missing ? coderValueNotFound : coderReadCorrupt;
    } else if (dynamic_cast<const EncodingError*>(&error) != nullptr) {
        result.status = FEXO_ERROR_ENCODING;
        result.domain = cocoaDomain;
        result.code = coderInvalidValue;
    } else if (const auto* cocoa = dynamic_cast<const CocoaError*>(&error)) {
        result.status =
            cocoa->code() == CocoaError::propertyListWriteInvalid ? FEXO_ERROR_ENCODING : FEXO_ERROR_DECODING;
        result.domain = cocoaDomain;
        result.code = cocoa->code();
    }
    return result;
}

fexo_error describeLibraryError(fexo_status status, std::string description)
{
    std::string debug = std::string(fexo_status_name(status)) + ": " + description;
    return {status, libraryDomain, status, std::move(description), std::move(debug)};
}

fexo_status report(fexo_error** out, fexo_error error)
{
    const fexo_status status = error.status;
    if (out != nullptr) *out = new fexo_error(std::move(error));
    return status;
}

char* copyString(std::string_view text)
{
    auto* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) throw std::bad_alloc();
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

} // namespace fexo::capi
