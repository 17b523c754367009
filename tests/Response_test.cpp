#include <FeXONotificationService/Response.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <gtest/gtest.h>

#include <cmath>

namespace {

using fexo::DecodingError;
using fexo::Response;
using fexo::ResponseAccess;

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

TEST(ResponseDecoding, EveryFieldRoundTripsAndEmptyStaysEmpty)
{
    const std::string json =
        R"({"createdAt":752000000.123456,"data":{"text":"Hello","sender":"Ada"},"errorCode":-9223372036854775808,)"
        R"("errorMessage":"none","id":"A-1","isRead":true})";
    const auto r = decode(json);
    EXPECT_EQ(r.data, fexo::NotificationData("Hello", "Ada"));
    EXPECT_EQ(r.isRead, true);
    EXPECT_EQ(ResponseAccess::createdAt(r)->timeIntervalSinceReferenceDate(), 752000000.123456);
    EXPECT_EQ(ResponseAccess::errorCode(r), INT64_MIN);
    EXPECT_EQ(nlohmann::json::parse(fexo::JSONEncoder{}.encode(r)), nlohmann::json::parse(json));
    EXPECT_EQ(fexo::JSONEncoder{}.encode(decode(R"({"isRead":null,"id":"x","data":{},"unknown":[1,{"a":2}]})")),
              R"({"data":{},"id":"x"})");
    EXPECT_EQ(fexo::JSONEncoder{}.encode(Response({}, {}, {}, {}, {}, false)), R"({"isRead":false})");
    EXPECT_EQ(fexo::JSONEncoder{}.encode(decode("{}")), "{}");
}

// The quick reader and the full decoder alone end every text alike: same record, or same error
// with the same path. The first texts are ones the quick reader itself must accept.
TEST(ResponseDecoding, EndsEveryTextExactlyAsTheFullDecoderAlone)
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

TEST(ResponseDates, AreSecondsSinceTwoThousandOneAsOneNumberAndSurviveExactly)
{
    EXPECT_EQ(ResponseAccess::createdAt(decode(R"({"createdAt":0})"))->timeIntervalSince1970(), 978307200.0);
    EXPECT_EQ(fexo::JSONEncoder{}.encode(Response(fexo::Date::fromTimeIntervalSince1970(0))),
              R"({"createdAt":-978307200})");
    for (double seconds : {0.1, -1e-9, 1.7976931348623157e308, 123456789.98765433}) {
        EXPECT_EQ(ResponseAccess::createdAt(decode(fexo::JSONEncoder{}.encode(Response(fexo::Date{seconds}))))
                      ->timeIntervalSinceReferenceDate(),
                  seconds);
    }
    for (double nonFinite : {std::nan(""), HUGE_VAL})
        EXPECT_THROW((void)fexo::JSONEncoder{}.encode(Response(fexo::Date(nonFinite))), fexo::EncodingError);
    EXPECT_THROW((void)fexo::JSONEncoder{}.encode(Response({}, fexo::NotificationData("\xc0\xaf"))),
                 fexo::EncodingError);
}

} // namespace
