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

// Inputs that once ended the process or did not read back as written.
std::string bytes(const char* literal, std::size_t sizeWithTerminator)
{
    return std::string(literal, sizeWithTerminator - 1);
}

TEST(PropertyListMalformed, BinaryTextHoldingNulIsNoPropertyListInsteadOfEndingTheProcess)
{
    // {"k": "\u00e9\0b"} and {"\u00e9\0b": "v"}: UTF-16 text with a zero unit.
    const char valueWithNul[] = "bplist00\xd1\x01\x02\x51\x6b\x63\x00\xe9\x00\x00\x00\x62\x08\x0b\x0d\x00\x00\x00\x00\x00"
                                "\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x03\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
                                "\x00\x00\x00\x00\x00\x14";
    const char keyWithNul[] = "bplist00\xd1\x01\x02\x63\x00\xe9\x00\x00\x00\x62\x51\x76\x08\x0b\x12\x00\x00\x00\x00\x00"
                              "\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x03\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
                              "\x00\x00\x00\x00\x00\x14";
    // {"k": "\u00e9b"}: the same without the zero unit still reads.
    const char clean[] = "bplist00\xd1\x01\x02\x51\x6b\x62\x00\xe9\x00\x62\x08\x0b\x0d\x00\x00\x00\x00\x00\x00\x01\x01"
                         "\x00\x00\x00\x00\x00\x00\x00\x03\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
                         "\x00\x12";
    EXPECT_FALSE(PropertyList::parse(bytes(valueWithNul, sizeof valueWithNul)).has_value());
    EXPECT_FALSE(PropertyList::parse(bytes(keyWithNul, sizeof keyWithNul)).has_value());
    const auto parsed = PropertyList::parse(bytes(clean, sizeof clean));
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(*parsed->dictionary()->at("k").string(), "\u00e9b");
}

TEST(PropertyListMalformed, TextThatIsNotUtf8IsNoPropertyList)
{
    const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>";
    const std::string tail = "</dict></plist>";
    for (const std::string& entry : {std::string("<key>k</key><string>cl\xff\xfeient</string>"),
                                     std::string("<key>k\xc3\x28</key><string>v</string>"),
                                     std::string("<key>k</key><string>\xed\xa0\x80</string>")}) {
        EXPECT_FALSE(PropertyList::parse(head + entry + tail).has_value()) << entry;
    }
    EXPECT_TRUE(PropertyList::parse(head + "<key>k</key><string>\xc3\xa9</string>" + tail).has_value());
}

TEST(PropertyListMalformed, DatesBeforeTheReferenceDateKeepTheirFractionAndFarDatesTheirRange)
{
    using Format = PropertyList::Format;
    const auto readBack = [](double seconds, Format format) {
        const auto parsed = PropertyList::parse(PropertyList::serialize(fexo::Date(seconds), format));
        EXPECT_TRUE(parsed && parsed->date());
        return parsed && parsed->date() ? parsed->date()->timeIntervalSinceReferenceDate() : 0.0;
    };
    EXPECT_EQ(readBack(-1.5, Format::binary), -1.5);
    EXPECT_EQ(readBack(-1000000.75, Format::binary), -1000000.75);
    EXPECT_NEAR(readBack(-1847140.380682, Format::binary), -1847140.380682, 1.5e-6);
    EXPECT_EQ(readBack(-1.5, Format::xml), -1.0); // whole seconds, cut toward zero
    EXPECT_EQ(readBack(-2147483648.5, Format::binary), -2147483648.5);
    EXPECT_NEAR(readBack(-1e300, Format::binary), -2147483648.999999, 2e-6);
    EXPECT_EQ(readBack(-1e300, Format::xml), -2147483648.0);
    EXPECT_NEAR(readBack(1e300, Format::binary), 2147483647.999999, 2e-6);
}

} // namespace
