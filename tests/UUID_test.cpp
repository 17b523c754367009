#include <FeXOPlatform/UUID.hpp>

#include <gtest/gtest.h>

#include <regex>
#include <set>

TEST(UUID, IsUpperCaseVersionFourAndFresh)
{
    const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const auto text = fexo::UUID().uuidString();
        ASSERT_TRUE(std::regex_match(text, shape)) << text;
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 1000u);
}
