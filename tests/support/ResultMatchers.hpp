#pragma once

#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/Result.hpp>
#include <FeXOPlatform/URLError.hpp>

#include <gmock/gmock.h>

#include <optional>

namespace fexo::test {

// The platform code of a URLError, or nullopt for any other kind of error.
inline std::optional<int> urlErrorCode(const Error& error)
{
    const auto* urlError = error.as<URLError>();
    return urlError ? std::optional<int>(urlError->code()) : std::nullopt;
}

// EXPECT_THAT(result, IsSuccess()) for any Result<T>.
MATCHER(IsSuccess, "is a success")
{
    if (arg.isSuccess()) return true;
    *result_listener << "failed with " << arg.error().description();
    return false;
}

// EXPECT_THAT(result, IsFailureWith(URLError::timedOut)): a failure carrying a URLError of that code.
MATCHER_P(IsFailureWith, code, "is a failure with URLError code " + testing::PrintToString(static_cast<int>(code)))
{
    if (arg.isSuccess()) {
        *result_listener << "succeeded";
        return false;
    }
    *result_listener << "failed with " << arg.error().description();
    return urlErrorCode(arg.error()) == static_cast<int>(code);
}

// A failure carrying an error of kind E (DecodingError, EncodingError, ...).
template <class E>
auto IsFailureOfKind()
{
    return testing::Truly([](const auto& result) { return result.isFailure() && result.error().template as<E>(); });
}

} // namespace fexo::test
