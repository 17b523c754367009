#include <capi/Boundary.hpp>

#include <FeXONotificationService/FeXOStoreError.hpp>
#include <FeXOPlatform/CocoaError.hpp>
#include <FeXOPlatform/EncodingError.hpp>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace fexo::capi {

namespace {

// The status of an error of the library's kinds, by its domain and, where one domain holds
// errors of two statuses, its code. The first row that matches decides; `anyCode` matches every
// code of the domain. An error of a domain not listed is internal.
constexpr std::int64_t anyCode = INT64_MIN;
struct StatusOfDomain {
    std::string_view domain;
    std::int64_t code;
    fexo_status status;
};
constexpr StatusOfDomain statusOfDomain[] = {
    {NSURLErrorDomain, anyCode, FEXO_ERROR_TRANSPORT},
    {NSCocoaErrorDomain, EncodingError::coderInvalidValue, FEXO_ERROR_ENCODING},
    {NSCocoaErrorDomain, CocoaError::propertyListWriteInvalid, FEXO_ERROR_ENCODING},
    {NSCocoaErrorDomain, anyCode, FEXO_ERROR_DECODING},
    {FeXOStoreError::domain, anyCode, FEXO_ERROR_STORE},
};

} // namespace

fexo_error describe(const ErrorBase& error)
{
    const std::string_view domain = error.errorDomain();
    const std::int64_t code = error.errorCode();
    for (const auto& row : statusOfDomain) {
        if (row.domain == domain && (row.code == anyCode || row.code == code))
            return {row.status, std::string(domain), code, error.localizedDescription(), error.description()};
    }
    return {FEXO_ERROR_INTERNAL, std::string(domain), code, error.localizedDescription(), error.description()};
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
