#include <FeXONotificationService/ResponseFastDecoder.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

using fexo::DecodingError;
using fexo::Response;

Response decode(const std::string& json)
{
    return fexo::JSONDecoder{}.decode<Response>(json);
}

// What a text ends in: the record encoded again, or the error's description.
template <class Decode>
std::string outcome(Decode&& decode)
{
    try {
        return fexo::JSONEncoder{}.encode(decode());
    } catch (const DecodingError& error) {
        return error.description();
    }
}

// The quick reader and the full decoder alone end every text alike: same record, or same error
// with the same path. The first texts are ones the quick reader itself must accept.
TEST(ResponseFastDecoder, EndsEveryTextExactlyAsTheFullDecoderAlone)
{
    const std::string accepted[] = {
        R"({"data":{"text":"\"q\" \\ \/ \b\f\n\r\t \u00e9 \ud83d\ude00 \u0000","sender":null,"text":"last"},"id":"a","id":"b"})",
        "{\"id\":\"\xE2\x82\xAC \xF0\x9F\x98\x80\"}",
        R"({"errorCode":1.0,"createdAt":0})",
        R"({"errorCode":1e3,"createdAt":4.9e-324})",
        R"({"errorCode":9223372036854775807,"createdAt":18446744073709551615})",
        " {\n\"isRead\"\r:\ttrue , \"x\":[[{}]]} ",
    };
    const std::string others[] = {
        R"({"createdAt":"2024-01-01T00:00:00Z"})",
        R"({"errorCode":1.5})",
        R"({"errorCode":9223372036854775808})",
        R"({"errorCode":-9.2233720368547758e18})",
        R"({"id":7,"id":"late"})",
        R"({"data":"text"})",
        R"({"isRead":1})",
        "[]",
        R"({"data":{"sender":false}})",
        R"({"data":{"text":1},"data":null})",
        "null",
        "{\"id\":\"\xff\"}",
        R"({"id":"\udc00"})",
        R"({"createdAt":-0.0})",
        R"({"createdAt":1e-400})",
        std::string("{\"id\":\"a\"}\0x", 12),
        "{\"id\":\"a\"} {}",
        R"({"id":"a",})",
    };
    std::vector<std::string> texts(std::begin(accepted), std::end(accepted));
    texts.insert(texts.end(), std::begin(others), std::end(others));
    for (const auto& json : texts) {
        Response quick;
        const std::string full = outcome([&] {
            Response record;
            fexo::coding::decodeValue(fexo::JSONDecoder::parse(json), record);
            return record;
        });
        EXPECT_EQ(outcome([&] { return decode(json); }), full) << json;
        if (fexo::fastDecode(json, quick)) {
            EXPECT_EQ(fexo::JSONEncoder{}.encode(quick), full) << json;
        }
    }
    for (const auto& json : accepted) EXPECT_TRUE(fexo::fastDecode(json, *std::make_unique<Response>())) << json;
    try {
        (void)decode(R"({"data":{"sender":false}})");
        ADD_FAILURE();
    } catch (const DecodingError& error) {
        EXPECT_EQ(error.codingPath(), (std::vector<std::string>{"data", "sender"}));
    }
}

} // namespace
