// What a failure inside the library becomes at the C interface: the status, domain and code a C
// or Python caller sees for each kind of error, and the end of the process for an integration
// mistake.
#include <capi/Boundary.hpp>

#include <FeXOPlatform/CocoaError.hpp>
#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/EncodingError.hpp>
#include <FeXOPlatform/URLError.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <stdexcept>

namespace {

struct Thrown {
    const char* name;
    std::function<void()> raise;
    fexo_status status;
    const char* domain;
    std::int64_t code;
};

const Thrown thrownCases[] = {
    {"transport", [] { throw fexo::URLError(fexo::URLError::cannotConnectToHost, "http://127.0.0.1:9/x"); },
     FEXO_ERROR_TRANSPORT, "NSURLErrorDomain", -1004},
    {"wrongType", [] { throw fexo::DecodingError::typeMismatch("String", "Expected a string."); }, FEXO_ERROR_DECODING,
     "NSCocoaErrorDomain", 4864},
    {"missingKey", [] { throw fexo::DecodingError::keyNotFound("id", "No value for the key."); }, FEXO_ERROR_DECODING,
     "NSCocoaErrorDomain", 4865},
    {"notJSON", [] { throw fexo::CocoaError(fexo::CocoaError::propertyListReadCorrupt, "Garbage."); },
     FEXO_ERROR_DECODING, "NSCocoaErrorDomain", 3840},
    {"unencodable", [] { throw fexo::EncodingError::invalidValue("nan", "Not a number."); }, FEXO_ERROR_ENCODING,
     "NSCocoaErrorDomain", 4866},
    {"other", [] { throw std::runtime_error("disk on fire"); }, FEXO_ERROR_INTERNAL, "FeXOErrorDomain",
     FEXO_ERROR_INTERNAL},
    {"unknown", [] { throw 42; }, FEXO_ERROR_INTERNAL, "FeXOErrorDomain", FEXO_ERROR_INTERNAL},
};

void PrintTo(const Thrown& thrown, std::ostream* out)
{
    *out << thrown.name;
}

class CInterfaceBoundaryTest : public testing::TestWithParam<Thrown> { };

TEST_P(CInterfaceBoundaryTest, AnExceptionBecomesAStatusWithItsDomainAndCode)
{
    const Thrown& thrown = GetParam();
    fexo_error* error = nullptr;
    const fexo_status status = fexo::capi::guarded(&error, [&] {
        thrown.raise();
        return FEXO_OK;
    });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(status, thrown.status);
    EXPECT_EQ(fexo_error_status(error), thrown.status);
    EXPECT_STREQ(fexo_error_domain(error), thrown.domain);
    EXPECT_EQ(fexo_error_code(error), thrown.code);
    EXPECT_STRNE(fexo_error_description(error), "");
    EXPECT_STRNE(fexo_error_debug_description(error), "");
    fexo_error_free(error);
}

INSTANTIATE_TEST_SUITE_P(Kinds, CInterfaceBoundaryTest, testing::ValuesIn(thrownCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CInterfaceBoundary, RunningOutOfMemoryIsAStatusWithoutAnErrorObject)
{
    fexo_error* error = reinterpret_cast<fexo_error*>(1);
    EXPECT_EQ(fexo::capi::guarded(&error, []() -> fexo_status { throw std::bad_alloc(); }), FEXO_ERROR_OUT_OF_MEMORY);
    EXPECT_EQ(error, nullptr);
}

TEST(CInterfaceBoundaryDeathTest, AnIntegrationMistakeEndsTheProcessWithItsNameAndReason)
{
    EXPECT_DEATH(fexo::capi::guarded(nullptr,
                                     []() -> fexo_status {
                                         fexo::NSException("NSGenericException", "no configuration").raise();
                                         return FEXO_OK;
                                     }),
                 "NSGenericException: no configuration");
}

} // namespace
