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
        R"({"data":{"text":"\"quoted\" \\ \/ \b\f\n\r\t","sender":"a\\"}})",
        R"({"data":{"text":null,"sender":null}})",
        "{\"data\":{\"text\":\"\xE2\x82\xAC \xF0\x9F\x98\x80 raw UTF-8\"}}",
        R"({"errorCode":1.0,"createdAt":0})",
        R"({"errorCode":1e3,"createdAt":-978307200})",
        R"({"errorCode":9223372036854775807,"createdAt":18446744073709551615})",
        R"({"createdAt":1.7976931348623157e308})",
        R"({"createdAt":4.9e-324})",
        R"({"createdAt":0.1,"errorCode":-0})",
        " \t\r\n{\"id\":\"spaced\"} \n",
        " {\n\"id\"\r:\t\"x\" ,\n\"data\" : { \"text\" : null , \"sender\"\t:\"s\" } ,\"isRead\" :true } ",
        "{\"id\":\"\x7F DEL is a plain character\"}",
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
             R"({"errorCode":18446744073709551616})",
             R"({"errorCode":9.2233720368547758e18})",
             R"({"errorCode":-9.2233720368547758e18})",
             R"({"errorCode":1e19})",
             R"({"errorCode":-0.0})",
             R"({"createdAt":-0.0})",
             R"({"createdAt":-0e5})",
             R"({"createdAt":1e400})",
             R"({"createdAt":-1e400})",
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
             R"({"data":{"text":"a","sender":"b"},"data":null})",
             R"({"data":{"text":"t","text":null}})",
             R"({"errorCode":1,"errorCode":null,"createdAt":1,"createdAt":2})",
             R"({"id":"one","id":"two","id":"three"})",
         }) {
        expectSameOutcome(json);
    }
    EXPECT_EQ(std::get<Response>(decoderResult(R"({"id":5,"id":"wins"})")).id, "wins");
}

TEST(ResponseFastDecoding, ValidRecordsTheQuickReaderLeavesAloneStillDecode)
{
    for (const std::string json : {
             R"({"data":{"text":null,"sender":"S","extra":[1,2,{"x":null}]},"unknown":{"deep":[[[]]]}})",
             R"({"\u0069d":"escaped key","isRead":false})",
             R"({"data":{"text":"caf\u00e9 \ud83d\ude00","sender":"\u0000nul"}})",
             R"({"errorCode":-9223372036854775809})",
             R"({"createdAt":1e-400})",
             R"({"createdAt":-0})",
         }) {
        expectSameOutcome(json);
        EXPECT_TRUE(std::holds_alternative<Response>(decoderResult(json))) << json;
    }
}

TEST(ResponseFastDecoding, WellFormedUTF8IsReadAndEveryIllFormedSequenceIsRefused)
{
    // The first and last code point of each encoding length and around the surrogates.
    for (const std::string text : {
             "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF",
             "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA9" "b\xE2\x82\xAC\xF0\x9F\x98\x80",
         }) {
        const std::string json = "{\"id\":\"" + text + "\",\"data\":{\"sender\":\"" + text + "\"}}";
        Response quick;
        EXPECT_TRUE(fexo::fastDecode(json, quick)) << json;
        EXPECT_EQ(quick.id, text);
        expectSameOutcome(json);
    }
    for (const std::string text : {
             "\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xF0\x80\x80\x80",
             "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
             "\xFE", "\xFF", "\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xC3\x41", "\xE2\x28\xA1", "\xF0\x9F\x28\x80",
             "\x01", "\x1F", "\n",
         }) {
        expectSameOutcome("{\"id\":\"" + text + "\"}");
        expectSameOutcome("{\"data\":{\"text\":\"ok" + text + "\"}}");
        // Cut off inside the sequence, at the very end of the text.
        expectSameOutcome("{\"id\":\"" + text);
    }
    expectSameOutcome(std::string("{\"id\":\"a\0b\"}", 12));
}

TEST(ResponseFastDecoding, NumberSpellingsReadToTheFullDecodersValue)
{
    // Accepted by both, with the same value: exponents, fractions and long mantissas that only
    // correct rounding gets right.
    for (const std::string json : {
             R"({"createdAt":1E2,"errorCode":1e+2})",
             R"({"createdAt":1e-2,"errorCode":100e-2})",
             R"({"createdAt":-1.5e-3,"errorCode":1e02})",
             R"({"createdAt":0.30000000000000001665,"errorCode":1.0000000000000000001})",
             R"({"createdAt":9007199254740993,"errorCode":9007199254740993})",
             R"({"createdAt":1e23,"errorCode":-9.2233720368547758e18})",
             R"({"createdAt":2.2250738585072011e-308})",
             R"({"createdAt":2.4703282292062328e-324})",
             R"({"createdAt":8.98846567431158e307})",
             R"({"createdAt":721692800.25,"errorCode":-0})",
         }) {
        SCOPED_TRACE(json);
        Response quick;
        EXPECT_TRUE(fexo::fastDecode(json, quick));
        expectSameOutcome(json);
    }
    // Refused by the full decoder (malformed) or ending in its value or error (edges).
    for (const std::string number : {
             "1e", "1e+", "1E-", "-", "--1", "-a", "1.e5", "0x10", "1_000", "01.5", "-01", "00", "0.", "-.5",
             "1.5.2", "1e5e5", "Infinity", "-Infinity", "nan", "9223372036854775807.0", "-9223372036854775808.0",
             "99999999999999999999", "-0e0", "-0.0e-5", "1.7976931348623159e308", "2.4703282292062327e-324",
         }) {
        expectSameOutcome(R"({"createdAt":)" + number + "}");
        expectSameOutcome(R"({"errorCode":)" + number + "}");
    }
}

TEST(ResponseFastDecoding, MalformedStructureAndLiteralsAreRefused)
{
    for (const std::string json : {
             R"({"id":"x" "isRead":true})", R"({"id"  "x"})", R"({,})", R"({"id":"x",,"isRead":true})",
             R"({"data":{"text":"a",}})", R"({"data":{"text":"a"})", R"({"data":{"text":"a"}}})",
             R"({"data":{"text"}})", R"({"data":{,}})", R"({"isRead":tru})", R"({"isRead":truee})",
             R"({"isRead":True})", R"({"id":nul})", R"({"id":nulll})", R"({"isRead":falsefalse})",
             R"({"id":"a\qb"})", R"({"id":"a\)", R"({"i\d":"x"})", R"({"id":"x"})" "\v",
             "{\"id\":\"x\"}\xC2\xA0", "\f{}", R"({"id":"x")", R"({"id")", R"({"id":)", "{\"",
         }) {
        expectSameOutcome(json);
        EXPECT_TRUE(std::holds_alternative<std::string>(decoderResult(json))) << json;
    }
}

TEST(ResponseFastDecoding, EveryFieldIsSetAfreshEvenInAReusedRecord)
{
    Response record;
    ASSERT_TRUE(fexo::fastDecode(
        R"({"createdAt":1,"data":{"text":"t"},"errorCode":2,"errorMessage":"m","id":"i","isRead":true})", record));
    ASSERT_TRUE(fexo::fastDecode(R"({"data":{"sender":"s"}})", record));
    EXPECT_TRUE(identical(record, Response(std::nullopt, fexo::NotificationData(std::nullopt, "s"))));
    ASSERT_TRUE(fexo::fastDecode("{}", record));
    EXPECT_TRUE(identical(record, Response{}));
}

} // namespace
