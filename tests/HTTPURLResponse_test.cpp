#include <FeXOPlatform/HTTPURLResponse.hpp>

#include <gtest/gtest.h>

TEST(HTTPURLResponse, RepeatedFieldsAreJoinedAndFoundWithoutRegardToCase)
{
    fexo::HTTPURLResponse response(*fexo::URL::fromString("http://h/"), 200, {{"Set", "a"}, {"X", "1"}, {"set", "b"}});
    EXPECT_EQ(response.value("SET"), "a, b");
    EXPECT_EQ(response.allHeaderFields().size(), 2u);
    EXPECT_FALSE(response.value("missing").has_value());
}
