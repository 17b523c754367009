#include <FeXOPlatform/URLRequest.hpp>

#include <gtest/gtest.h>

namespace {

TEST(URLRequest, DefaultsAndHeaderFieldsReplacedAtOnceWithoutRegardToCase)
{
    fexo::URLRequest request(*fexo::URL::fromString("https://example.com/x"));
    EXPECT_EQ(request.httpMethod(), "GET");
    EXPECT_EQ(request.timeoutInterval(), 60.0);
    EXPECT_FALSE(request.httpBody().has_value());

    request.setValue("old", "X-Old");
    request.setAllHTTPHeaderFields(
        {{"Content-Type", "text/plain"}, {"client_id", "a"}, {"content-type", "application/json"}});
    EXPECT_EQ(request.allHTTPHeaderFields(),
              (fexo::HTTPHeaderFields{{"Content-Type", "application/json"}, {"client_id", "a"}}));
    EXPECT_FALSE(request.value("x-old").has_value());
    EXPECT_EQ(request.value("CLIENT_ID"), "a");
}

} // namespace
