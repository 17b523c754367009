#include <FeXOPlatform/PropertyList.hpp>

#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <pthread.h>

namespace {

using fexo::PropertyList;
using fexo::PropertyListValue;
using Format = PropertyList::Format;

std::string bigEndian(std::uint64_t value, int width)
{
    std::string bytes;
    for (int k = width; k-- > 0;) bytes += static_cast<char>(value >> (8 * k));
    return bytes;
}

// A binary list of `objects` (encoded), the first at the top; references and offsets of 4 bytes.
std::string binaryList(const std::vector<std::string>& objects)
{
    std::string out = "bplist00", table;
    for (const auto& object : objects) table += bigEndian(out.size(), 4), out += object;
    return out + table + std::string(6, '\0') + "\x04\x04" + bigEndian(objects.size(), 8) + bigEndian(0, 8) +
           bigEndian(out.size(), 8);
}

// `levels` arrays, each holding the next: as XML, and as the objects of a binary list.
std::string nestedXML(int levels)
{
    std::string open, close;
    for (int i = 0; i < levels; ++i) open += "<array>", close += "</array>";
    return "<plist version=\"1.0\">" + open + close + "</plist>";
}
std::vector<std::string> nestedObjects(int levels)
{
    std::vector<std::string> objects;
    for (int i = 0; i < levels; ++i) objects.push_back("\xa1" + bigEndian(i + 1, 4));
    objects.push_back("\xa0");
    return objects;
}

TEST(PropertyList, EveryKindSurvivesBothFormsAndStaysItsKind)
{
    const PropertyListValue value(PropertyListValue::Dictionary{
        {"string", "12"},
        {"integer", std::int64_t{-5}},
        {"real", 1.5},
        {"boolean", true},
        {"date", fexo::Date(86400)},
        {"data", PropertyListValue::Data{std::string("\0\x01\xff", 3)}},
        {"array", PropertyListValue::Array{"a", std::int64_t{1}}},
        {"nested", PropertyListValue::Dictionary{{"k", "v"}}},
    });
    for (auto format : {Format::xml, Format::binary})
        EXPECT_EQ(PropertyList::parse(PropertyList::serialize(value, format)), value);
    EXPECT_EQ(PropertyList::serialize(PropertyListValue(std::string("a\0b", 3)), Format::binary),
              ""); // cannot be written
}

TEST(PropertyList, AnythingElseIsNoPropertyList)
{
    const std::string head = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>k</key>";
    for (const std::string& bytes : {std::string(), std::string("garbage"), std::string("bplist00"), head,
                                     head + "<string>cl\xff\xfeient</string></dict></plist>",
                                     head + "<string>\xed\xa0\x80</string></dict></plist>"}) {
        EXPECT_FALSE(PropertyList::parse(bytes).has_value()) << bytes;
    }
    // Objects whose offsets point past the offset table, at the trailer: where a string holding a
    // NUL was moved, in the copy made for libplist, one of them, a key, became that string, and
    // libplist ended the process on a failed assertion (found by the fuzzer).
    const std::string pastTheObjects(
        "\x62\x70\x6c\x69\x73\x74\x30\x30\xd5\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x59\x41\x50\x50\x5f"
        "\x47\x52\x4f\x55\x50\x59\x42\x55\x4e\x44\x4c\x45\x5f\x49\x44\x59\x43\x4c\x49\x45\x4e\x54\x5f\x49"
        "\x44\x5d\x43\x4c\x49\x45\x4e\x3c\x64\x69\x63\x74\x3e\x45\x54\x5d\x46\x45\x58\x4f\x5f\x42\x41\x53"
        "\x45\x5f\x55\x52\x4c\x53\x61\x00\x62\x51\x62\x51\x63\x51\x73\x58\x68\x74\x74\x70\x3a\x2f\x2f\x78"
        "\x08\x13\x1d\x27\xe1\x31\xe1\x4d\x3f\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1"
        "\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1"
        "\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1"
        "\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1"
        "\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1\xe1"
        "\xe1\xe1\xe1\xe1\xe1\x51\x53\x55\x57\x00\x00\x00\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00"
        "\x0b\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x60",
        257);
    EXPECT_FALSE(PropertyList::parse(pastTheObjects));
    EXPECT_FALSE(PropertyList::readFile("/nonexistent/file.plist").has_value());
    fexo::test::TemporaryDirectory directory;
    std::ofstream(directory.path() / "big.plist")
        << head << "<string>" << std::string(100, 'x') << "</string></dict></plist>";
    EXPECT_FALSE(PropertyList::readFile(directory.path() / "big.plist", 100).has_value()); // refused unread
    EXPECT_TRUE(PropertyList::readFile(directory.path() / "big.plist", 200).has_value());
}

TEST(PropertyList, TextKeepsEveryByteAndAKeyWithNulIsRefused)
{
    const std::string nul("a\0b", 3);
    const std::string utf16Nul("\x63\x00\xe9\x00\x00\x00\x62", 7);
    for (const std::string& text : {"\x53" + nul, utf16Nul}) {
        const auto parsed =
            PropertyList::parse(binaryList({"\xd1" + bigEndian(1, 4) + bigEndian(2, 4), "\x51k", text}));
        ASSERT_TRUE(parsed.has_value());
        EXPECT_EQ(*parsed->dictionary()->at("k").string(), text[0] == '\x53' ? nul : std::string("\xc3\xa9\0b", 4));
        EXPECT_FALSE(PropertyList::parse(binaryList({"\xd1" + bigEndian(1, 4) + bigEndian(2, 4), text, "\x51v"})));
    }
}

TEST(PropertyList, HostileNestingAndSharingEndInNothingNotInACrash)
{
    EXPECT_FALSE(PropertyList::parse(nestedXML(200000)));
    EXPECT_FALSE(PropertyList::parse(binaryList(nestedObjects(200000))));
    std::vector<std::string> shared;
    for (int i = 0; i < 40; ++i) shared.push_back("\xa2" + bigEndian(i + 1, 4) + bigEndian(i + 1, 4)); // 2^40 nodes
    shared.push_back("\xa0");
    EXPECT_FALSE(PropertyList::parse(binaryList(shared)));
    shared.erase(shared.begin(), shared.end() - 6);
    for (int i = 0; i < 5; ++i) shared[i] = "\xa2" + bigEndian(i + 1, 4) + bigEndian(i + 1, 4);
    EXPECT_TRUE(PropertyList::parse(binaryList(shared))); // 63 nodes in 110 bytes: sharing itself is fine
}

// Parsed on a thread with a 64 KiB stack, as a host's worker may have: a shallow list is read
// there, a deep one (either form) must not be, or the recursion overruns that stack.
TEST(PropertyList, DeepListsAreReadOffASmallCallerStack)
{
    for (std::string input : {nestedXML(8), nestedXML(500), binaryList(nestedObjects(500))}) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, 64 * 1024);
        pthread_t thread;
        const auto parse = [](void* text) -> void* {
            return PropertyList::parse(*static_cast<std::string*>(text)) ? text : nullptr;
        };
        void* parsed = nullptr;
        ASSERT_EQ(pthread_create(&thread, &attributes, parse, &input), 0);
        pthread_join(thread, &parsed);
        pthread_attr_destroy(&attributes);
        EXPECT_NE(parsed, nullptr) << input.size();
    }
}

TEST(PropertyList, DatesKeepTheirFractionAndFarDatesTheirRange)
{
    const auto readBack = [](double seconds, Format format) {
        const auto parsed = PropertyList::parse(PropertyList::serialize(fexo::Date(seconds), format));
        return parsed && parsed->date() ? parsed->date()->timeIntervalSinceReferenceDate() : 0.0;
    };
    EXPECT_EQ(readBack(-1000000.75, Format::binary), -1000000.75);
    EXPECT_EQ(readBack(-1.5, Format::xml), -1.0); // whole seconds, cut toward zero
    EXPECT_NEAR(readBack(-1e300, Format::binary), -2147483648.999999, 2e-6);
}

} // namespace
