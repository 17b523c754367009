#include <FeXOPlatform/URL.hpp>
#include <FeXOPlatform/URLOrigin.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::URL;

// Absolute texts with scheme and host are kept as given; whatever else the parser refuses is no URL.
TEST(URL, AbsoluteTextsWithSchemeAndHostAreKeptAsGivenAndNothingElse)
{
    for (const char* text : {"https://api.example.com", "http://127.0.0.1:8080/api//Registration/RegisterNewDevice",
                             "https://example.com/v2/api/Notification/GetNotificationContent?x=1#f",
                             "HTTPS://Example.COM/Path", "custom-scheme://host/path"})
        EXPECT_EQ(URL::fromString(text).value_or(*URL::fromString("x://refused")).absoluteString(), text);
    EXPECT_EQ(URL::fromString("HTTPS://Example.COM/Path")->scheme(), "https");
    for (const std::string& text :
         std::vector<std::string>{"", "https://exa mple.com", "https://example.com/a b", " https://example.com",
                                  "/api/Registration", "example.com/path", "https://", "mailto:someone@example.com",
                                  "https://example.com/\n", std::string("https://example.com/\0x", 22)})
        EXPECT_FALSE(URL::fromString(text).has_value()) << text;
}

TEST(URLOrigin, SchemeHostAndPortDecideWithTheSchemesDefaultPortFilledIn)
{
    const auto origin = [](const char* text) { return fexo::URLOrigin::of(text).value_or(fexo::URLOrigin{}).key(); };
    EXPECT_EQ(origin("HTTP://Example.COM/a?b#c"), "http://example.com:80");
    EXPECT_EQ(origin("http://example.com:80/x"), origin("http://example.com/y"));
    EXPECT_EQ(origin("https://example.com/"), "https://example.com:443");
    EXPECT_NE(origin("http://example.com:8080/"), origin("http://example.com/"));
    EXPECT_NE(origin("http://127.0.0.1/"), origin("http://localhost/"));
    EXPECT_FALSE(fexo::URLOrigin::of("/relative/only").has_value());
}

} // namespace
