#include <FeXOPlatform/UTF8.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

using fexo::decodeUTF8Character;
using fexo::isValidUTF8;

// Every length at both ends of its range, then each way a sequence can be ill-formed.
TEST(UTF8, ACharacterIsOneWellFormedSequenceAndNothingElse)
{
    const struct {
        std::string text;
        char32_t codePoint;
        std::size_t length;
    } cases[] = {
        {std::string(1, '\0'), 0, 1},
        {"\x7F", 0x7F, 1},
        {"\xC2\x80", 0x80, 2},
        {"\xDF\xBF", 0x7FF, 2},
        {"\xE0\xA0\x80", 0x800, 3},
        {"\xED\x9F\xBF", 0xD7FF, 3},
        {"\xEE\x80\x80", 0xE000, 3},
        {"\xEF\xBF\xBF", 0xFFFF, 3},
        {"\xF0\x90\x80\x80", 0x10000, 4},
        {"\xF4\x8F\xBF\xBF", 0x10FFFF, 4},
        {"\u20ACafter", 0x20AC, 3}, // only the first character
        {"", 0, 0},
        {"\x80", 0, 0},     // a continuation byte
        {"\xC0\xAF", 0, 0}, // overlong forms, each length
        {"\xE0\x9F\xBF", 0, 0},
        {"\xF0\x8F\xBF\xBF", 0, 0},
        {"\xED\xA0\x80", 0, 0}, // surrogates
        {"\xED\xBF\xBF", 0, 0},
        {"\xF4\x90\x80\x80", 0, 0}, // past U+10FFFF
        {"\xF5\x80\x80\x80", 0, 0},
        {"\xFF", 0, 0},
        {"\xE2\x82", 0, 0},     // cut short
        {"\xE2\x28\xAC", 0, 0}, // broken
        {"\xF0\x9F\x98\x28", 0, 0},
    };
    for (const auto& expected : cases) {
        const auto found = decodeUTF8Character(expected.text);
        EXPECT_EQ(found.length, expected.length) << expected.text;
        EXPECT_EQ(found.codePoint, expected.codePoint) << expected.text;
    }
}

TEST(UTF8, ATextIsValidOnlyWhenEveryByteBelongsToACharacter)
{
    EXPECT_TRUE(isValidUTF8(""));
    EXPECT_TRUE(isValidUTF8(std::string("a\0\xC3\xA9\xF0\x9F\x98\x80", 8)));
    EXPECT_FALSE(isValidUTF8("caf\xC3"));
    EXPECT_FALSE(isValidUTF8("\xC3\xA9\xA9"));
}

} // namespace
