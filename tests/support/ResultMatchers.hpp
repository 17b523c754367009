#pragma once

#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/Result.hpp>
#include <FeXOPlatform/URLError.hpp>

#include <gmock/gmock.h>

namespace fexo::test {

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
    const auto* urlError = arg.error().template as<URLError>();
    return urlError && urlError->code() == static_cast<int>(code);
}

} // namespace fexo::test
