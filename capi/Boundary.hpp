#pragma once

#include <FeXONotificationService/fexo.h>
#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/NSException.hpp>
#include <FeXOPlatform/Result.hpp>

#include <cstdint>
#include <exception>
#include <new>
#include <string>
#include <string_view>

// What a fexo_error holds: copies of everything, so that it outlives the C++ error it came from.
struct fexo_error {
    fexo_status status;
    std::string domain;
    std::int64_t code;
    std::string description;
    std::string debugDescription;
};

namespace fexo::capi {

inline constexpr const char* libraryDomain = "FeXOErrorDomain";

// The status, domain and code a C caller sees for a library error (see fexo.h).
fexo_error describe(const ErrorBase& error);
inline fexo_error describe(const Error& error)
{
    return describe(*error.as<ErrorBase>());
}
// The same for an error the library defines outside any Result (text that is not JSON, ...).
fexo_error describeLibraryError(fexo_status status, std::string description);

// Hands `error` to the caller when it asked for it; returns its status.
fexo_status report(fexo_error** out, fexo_error error);

// FEXO_OK for a change the store kept; else the refusal's status (FEXO_ERROR_STORE), reported.
inline fexo_status kept(fexo_error** out, const Result<void>& outcome)
{
    return outcome.isSuccess() ? FEXO_OK : report(out, describe(outcome.error()));
}

// A copy the caller frees with fexo_free_string (malloc'd). Throws std::bad_alloc.
char* copyString(std::string_view text);

// Runs `body` (which returns a fexo_status) so that no exception leaves it. Integration
// mistakes end the process as they do in C++: the raised exception reaches std::terminate,
// which prints its type and text. Errors the library throws as values become their status;
// running out of memory becomes FEXO_ERROR_OUT_OF_MEMORY (reported without an error object,
// which could not be made); anything else FEXO_ERROR_INTERNAL with its text.
template <class Body>
fexo_status guarded(fexo_error** out, Body&& body) noexcept
{
    if (out != nullptr) *out = nullptr;
    try {
        try {
            return body();
        } catch (const NSException&) {
            std::terminate();
        } catch (const std::bad_alloc&) {
            return FEXO_ERROR_OUT_OF_MEMORY;
        } catch (const ErrorBase& error) {
            return report(out, describe(error));
        } catch (const std::exception& error) {
            return report(out, describeLibraryError(FEXO_ERROR_INTERNAL, error.what()));
        } catch (...) {
            return report(out, describeLibraryError(FEXO_ERROR_INTERNAL, "unknown failure"));
        }
    } catch (const std::bad_alloc&) {
        return FEXO_ERROR_OUT_OF_MEMORY;
    } catch (...) {
        return FEXO_ERROR_INTERNAL;
    }
}

} // namespace fexo::capi
