#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::DecodingError;

TEST(JSONCoding, Int64AcceptsWholeNumbersInRangeOnly)
{
    const fexo::JSONDecoder decoder;
    struct Case { const char* json; bool ok; std::int64_t value; };
    const Case cases[] = {
        {"-9223372036854775808", true, INT64_MIN}, {"9223372036854775807", true, INT64_MAX},
        {"5.0", true, 5}, {"9223372036854775808", false, 0}, {"5.5", false, 0},
        {"1e300", false, 0}, {"\"5\"", false, 0}, {"true", false, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        std::int64_t out = 0;
        auto root = decoder.parse(c.json);
        if (c.ok) {
            fexo::coding::decodeValue(root, out);
            EXPECT_EQ(out, c.value);
        } else {
            EXPECT_THROW(fexo::coding::decodeValue(root, out), DecodingError);
        }
    }
}

TEST(JSONCoding, MalformedTextIsDataCorrupted)
{
    for (const std::string& text : std::vector<std::string>{"", "{", "{\"a\":1", "nul", "\"\xff\"", "1e999", std::string(100000, '[')}) {
        try {
            (void)fexo::JSONDecoder::parse(text);
            ADD_FAILURE() << "parsed: " << text.substr(0, 20);
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.kind(), DecodingError::Kind::dataCorrupted);
        }
    }
}

TEST(JSONCoding, NonFiniteNumbersAndBadUTF8CannotBeEncoded)
{
    fexo::coding::Json out;
    EXPECT_THROW(fexo::coding::encodeValue(out, std::numeric_limits<double>::infinity()), fexo::EncodingError);
    EXPECT_THROW(fexo::coding::encodeValue(out, std::nan("")), fexo::EncodingError);
    EXPECT_THROW(fexo::JSONEncoder::serialize(fexo::coding::Json("\xc3(")), fexo::EncodingError);
}

TEST(JSONCoding, WholeDoublesAreWrittenWithoutFraction)
{
    fexo::coding::Json out;
    fexo::coding::encodeValue(out, fexo::Date(-978307200.0));
    EXPECT_EQ(out.dump(), "-978307200");
    fexo::coding::encodeValue(out, fexo::Date(0.25));
    EXPECT_EQ(out.dump(), "0.25");
}

} // namespace
