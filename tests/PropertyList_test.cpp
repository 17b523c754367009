#include <FeXOPlatform/PropertyList.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::PropertyList;
using fexo::PropertyListValue;

TEST(PropertyList, EveryKindSurvivesBothFormsAndStaysItsKind)
{
    const PropertyListValue value(PropertyListValue::Dictionary{
        {"string", "12"},
        {"integer", std::int64_t{-5}},
        {"real", 1.5},
        {"boolean", true},
        {"date", fexo::Date(86400)}, // XML dates hold whole seconds
        {"data", PropertyListValue::Data{std::string("\0\x01\xff", 3)}},
        {"array", PropertyListValue::Array{"a", std::int64_t{1}}},
        {"nested", PropertyListValue::Dictionary{{"k", "v"}}},
    });
    for (auto format : {PropertyList::Format::xml, PropertyList::Format::binary}) {
        const auto parsed = PropertyList::parse(PropertyList::serialize(value, format));
        ASSERT_TRUE(parsed.has_value());
        EXPECT_EQ(*parsed, value);
        const auto& dictionary = *parsed->dictionary();
        EXPECT_EQ(dictionary.at("string").kind(), PropertyListValue::Kind::string);
        EXPECT_EQ(dictionary.at("integer").string(), nullptr);
    }
}

TEST(PropertyList, AnythingElseIsNoPropertyList)
{
    for (const std::string& bytes : {std::string(), std::string("garbage"), std::string("bplist00"),
                                    std::string("<?xml version=\"1.0\"?><plist><dict><key>a</key>")}) {
        EXPECT_FALSE(PropertyList::parse(bytes).has_value()) << bytes;
    }
    EXPECT_FALSE(PropertyList::readFile("/nonexistent/file.plist").has_value());
}

} // namespace
