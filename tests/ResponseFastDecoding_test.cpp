// The quick record reader must never change what decoding a record yields: where it accepts a
// text, the full decoder accepts it too with the same value, and through JSONDecoder every text
// ends exactly as the full decoder alone would end it (same value, or same error and path).

#include <FeXONotificationService/Response.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <variant>

namespace {

using fexo::DecodingError;
using fexo::Response;
using fexo::ResponseAccess;

// The full decoder alone: the record, or the description of its error.
std::variant<Response, std::string> fullDecode(const std::string& json)
{
    try {
        Response record;
        fexo::coding::decodeValue(fexo::JSONDecoder::parse(json), record);
        return record;
    } catch (const DecodingError& error) {
        return error.description();
    }
}

std::variant<Response, std::string> decoderResult(const std::string& json)
{
    try {
        return fexo::JSONDecoder{}.decode<Response>(json);
    } catch (const DecodingError& error) {
        return error.description();
    }
}

// Same fields, with dates compared bit for bit so that 0 and -0 or two NaN payloads differ.
bool identical(const Response& a, const Response& b)
{
    const auto& da = ResponseAccess::createdAt(a);
    const auto& db = ResponseAccess::createdAt(b);
    if (da.has_value() != db.has_value()) return false;
    if (da) {
        const double x = da->timeIntervalSinceReferenceDate();
        const double y = db->timeIntervalSinceReferenceDate();
        if (std::signbit(x) != std::signbit(y) || !(x == y)) return false;
    }
    return a == b && ResponseAccess::errorCode(a) == ResponseAccess::errorCode(b) &&
           ResponseAccess::errorMessage(a) == ResponseAccess::errorMessage(b) &&
           fexo::JSONEncoder{}.encode(a) == fexo::JSONEncoder{}.encode(b);
}

void expectSameOutcome(const std::string& json)
{
    SCOPED_TRACE(json);
    const auto full = fullDecode(json);
    Response quick;
    if (fexo::fastDecode(json, quick)) {
        ASSERT_TRUE(std::holds_alternative<Response>(full)) << "the quick reader accepted what the full decoder refuses: "
                                                           << std::get<std::string>(full);
        EXPECT_TRUE(identical(quick, std::get<Response>(full)));
    }
    const auto through = decoderResult(json);
    ASSERT_EQ(through.index(), full.index());
    if (const auto* record = std::get_if<Response>(&full)) {
        EXPECT_TRUE(identical(std::get<Response>(through), *record));
    } else {
        EXPECT_EQ(std::get<std::string>(through), std::get<std::string>(full));
    }
}

TEST(ResponseFastDecoding, OrdinaryRecordsAreReadByTheQuickReaderWithTheFullDecodersValue)
{
    const std::string records[] = {
        R"({"createdAt":752000000.123456,"data":{"text":"Hello","sender":"Ada"},"errorCode":-9223372036854775808,)"
        R"("errorMessage":"none","id":"A-1","isRead":true})",
        "{}",
        R"({"data":{}})",
        R"({"createdAt":null,"data":null,"errorCode":null,"errorMessage":null,"id":null,"isRead":null})",
        R"({"data":{"text":null,"sender":"S","extra":[1,2,{"x":null}]},"unknown":{"deep":[[[]]]}})",
        R"({"\u0069d":"escaped key","isRead":false})",
        R"({"data":{"text":"caf\u00e9 \ud83d\ude00 \"quoted\" \\ \/ \n\t","sender":"\u0000nul"}})",
        "{\"data\":{\"text\":\"\xE2\x82\xAC \xF0\x9F\x98\x80 raw UTF-8\"}}",
        R"({"errorCode":1.0,"createdAt":0})",
        R"({"errorCode":1e3,"createdAt":-978307200})",
        R"({"errorCode":9223372036854775807,"createdAt":18446744073709551615})",
        R"({"createdAt":1.7976931348623157e308})",
        R"({"createdAt":4.9e-324})",
        R"({"createdAt":0.1,"errorCode":-0})",
        " \t\r\n{\"id\":\"spaced\"} \n",
    };
    for (const auto& json : records) {
        SCOPED_TRACE(json);
        Response quick;
        EXPECT_TRUE(fexo::fastDecode(json, quick));
        expectSameOutcome(json);
    }
}

TEST(ResponseFastDecoding, WrongTypesFailWithTheFullDecodersErrorAndPath)
{
    for (const std::string json : {
             R"({"createdAt":"2024-01-01T00:00:00Z"})",
             R"({"createdAt":true})",
             R"({"data":"text"})",
             R"({"data":[]})",
             R"({"data":{"text":5}})",
             R"({"data":{"sender":false}})",
             R"({"errorCode":"1"})",
             R"({"errorCode":1.5})",
             R"({"errorMessage":{}})",
             R"({"id":1})",
             R"({"isRead":1})",
             R"({"isRead":"true"})",
             R"({"id":"ok","isRead":0,"data":{"text":1}})",
             "[]",
             "null",
             "\"record\"",
             "7",
         }) {
        expectSameOutcome(json);
        EXPECT_TRUE(std::holds_alternative<std::string>(decoderResult(json))) << json;
    }
}

TEST(ResponseFastDecoding, NumbersAtTheEdgesOfTheirRangeEndAsWithTheFullDecoder)
{
    for (const std::string json : {
             R"({"errorCode":9223372036854775808})",
             R"({"errorCode":-9223372036854775809})",
             R"({"errorCode":18446744073709551616})",
             R"({"errorCode":9.2233720368547758e18})",
             R"({"errorCode":-9.2233720368547758e18})",
             R"({"errorCode":1e19})",
             R"({"errorCode":-0.0})",
             R"({"createdAt":-0})",
             R"({"createdAt":-0.0})",
             R"({"createdAt":-0e5})",
             R"({"createdAt":1e400})",
             R"({"createdAt":-1e400})",
             R"({"createdAt":1e-400})",
             R"({"createdAt":123456789012345678901234567890})",
             R"({"createdAt":01})",
             R"({"createdAt":1.})",
             R"({"createdAt":.5})",
             R"({"createdAt":+1})",
             R"({"createdAt":NaN})",
             R"({"createdAt":Infinity})",
         }) {
        expectSameOutcome(json);
    }
}

TEST(ResponseFastDecoding, MalformedTextAndInvalidUTF8AreRefusedAsByTheFullDecoder)
{
    const std::string deep = "{\"x\":" + std::string(3000, '[') + std::string(3000, ']') + ",\"id\":\"d\"}";
    for (const std::string& json : {
             std::string(""),
             std::string("   "),
             std::string("{"),
             std::string("{\"id\":\"x\",}"),
             std::string("{\"id\":\"x\"} x"),
             std::string("{}{}"),
             std::string("{}\0", 3),
             std::string("\xEF\xBB\xBF{\"id\":\"bom\"}"),
             std::string("{\"id\":\"\xC3\x28\"}"),
             std::string("{\"id\":\"\xC0\xAF\"}"),
             std::string("{\"id\":\"\xED\xA0\x80\"}"),
             std::string("{\"id\":\"\xF4\x90\x80\x80\"}"),
             std::string("{\"\xFF\":1}"),
             std::string("{\"id\":\"\\ud800\"}"),
             std::string("{\"id\":\"\\udc00\"}"),
             std::string("{\"id\":\"\\ud800\\u0041\"}"),
             std::string("{\"id\":\"\\x41\"}"),
             std::string("{\"id\":\"tab\there\"}"),
             std::string("{\"id\":'single'}"),
             std::string("{id:\"x\"}"),
             deep,
         }) {
        expectSameOutcome(json);
    }
}

TEST(ResponseFastDecoding, RepeatedKeysKeepTheLastValueAsTheFullDecoderDoes)
{
    for (const std::string json : {
             R"({"id":"first","id":"second"})",
             R"({"id":5,"id":"wins"})",
             R"({"id":"loses","id":5})",
             R"({"data":{"text":"a"},"data":{"sender":"b"}})",
             R"({"data":{"text":1,"text":"t"}})",
             R"({"isRead":true,"isRead":null})",
         }) {
        expectSameOutcome(json);
    }
    EXPECT_EQ(std::get<Response>(decoderResult(R"({"id":5,"id":"wins"})")).id, "wins");
}

} // namespace
