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

nlohmann::json encode(const Response& r)
{
    return nlohmann::json::parse(fexo::JSONEncoder{}.encode(r));
}

TEST(ResponseDecoding, EmptyObjectHasEveryFieldEmptyAndEncodesBackToAnEmptyObject)
{
    const auto r = decode("{}");
    EXPECT_EQ(r, Response());
    EXPECT_EQ(fexo::JSONEncoder{}.encode(r), "{}");
}

TEST(ResponseDecoding, EveryFieldRoundTrips)
{
    const std::string json =
        R"({"createdAt":752000000.123456,"data":{"text":"Hello","sender":"Ada"},"errorCode":-9223372036854775808,)"
        R"("errorMessage":"none","id":"A-1","isRead":true})";
    const auto r = decode(json);
    EXPECT_EQ(r.data, fexo::NotificationData("Hello", "Ada"));
    EXPECT_EQ(r.id, "A-1");
    EXPECT_EQ(r.isRead, true);
    EXPECT_EQ(ResponseAccess::createdAt(r)->timeIntervalSinceReferenceDate(), 752000000.123456);
    EXPECT_EQ(ResponseAccess::errorCode(r), INT64_MIN);
    EXPECT_EQ(ResponseAccess::errorMessage(r), "none");
    EXPECT_EQ(encode(r), nlohmann::json::parse(json));
    EXPECT_EQ(decode(fexo::JSONEncoder{}.encode(r)), r);
}

TEST(ResponseDecoding, NullAndAbsentLeaveFieldsEmptyAndUnknownKeysAreDropped)
{
    const auto r = decode(R"({"isRead":null,"id":"x","data":{},"unknown":[1,{"a":2}]})");
    EXPECT_FALSE(r.isRead.has_value());
    EXPECT_EQ(r.id, "x");
    ASSERT_TRUE(r.data.has_value());
    EXPECT_FALSE(r.data->text || r.data->sender);
    EXPECT_EQ(encode(r), nlohmann::json::parse(R"({"id":"x","data":{}})"));
}

TEST(ResponseDecoding, AWrongTypeAnywhereFailsTheWholeRecordWithItsPath)
{
    struct Case {
        const char* json;
        DecodingError::Kind kind;
        std::vector<std::string> path;
    };
    const Case cases[] = {
        {R"({"createdAt":"2024-01-01T00:00:00Z"})", DecodingError::Kind::typeMismatch, {"createdAt"}},
        {R"({"errorCode":"5"})", DecodingError::Kind::typeMismatch, {"errorCode"}},
        {R"({"errorCode":1.5})", DecodingError::Kind::dataCorrupted, {"errorCode"}},
        {R"({"errorCode":9223372036854775808})", DecodingError::Kind::dataCorrupted, {"errorCode"}},
        {R"({"isRead":1})", DecodingError::Kind::typeMismatch, {"isRead"}},
        {R"({"id":7})", DecodingError::Kind::typeMismatch, {"id"}},
        {R"({"data":"text"})", DecodingError::Kind::typeMismatch, {"data"}},
        {R"({"data":{"sender":false}})", DecodingError::Kind::typeMismatch, {"data", "sender"}},
        {R"([])", DecodingError::Kind::typeMismatch, {}},
        {R"(null)", DecodingError::Kind::typeMismatch, {}},
        {R"({"id":"a")", DecodingError::Kind::dataCorrupted, {}},
        {"{\"id\":\"\xff\"}", DecodingError::Kind::dataCorrupted, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        try {
            (void)decode(c.json);
            ADD_FAILURE() << "decoded";
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.kind(), c.kind);
            EXPECT_EQ(error.codingPath(), c.path);
            EXPECT_FALSE(error.localizedDescription().empty());
        }
    }
}

TEST(ResponseDates, AreSecondsSinceTwoThousandOneAsOneNumber)
{
    EXPECT_EQ(ResponseAccess::createdAt(decode(R"({"createdAt":0})"))->timeIntervalSince1970(), 978307200.0);
    const Response unixEpoch(fexo::Date::fromTimeIntervalSince1970(0));
    EXPECT_EQ(fexo::JSONEncoder{}.encode(unixEpoch), R"({"createdAt":-978307200})");
    // Any double survives the trip exactly.
    for (double seconds : {0.1, -1e-9, 1.7976931348623157e308, 123456789.98765433}) {
        const Response r(fexo::Date{seconds});
        EXPECT_EQ(ResponseAccess::createdAt(decode(fexo::JSONEncoder{}.encode(r)))->timeIntervalSinceReferenceDate(), seconds);
    }
}

TEST(ResponseEncoding, WritesFalseButLeavesEmptyOut)
{
    EXPECT_EQ(encode(Response({}, {}, {}, {}, {}, false)), nlohmann::json::parse(R"({"isRead":false})"));
}

TEST(ResponseEncoding, ValuesJSONCannotHoldFailTheEncode)
{
    EXPECT_THROW((void)fexo::JSONEncoder{}.encode(Response(fexo::Date(std::nan("")))), fexo::EncodingError);
    EXPECT_THROW((void)fexo::JSONEncoder{}.encode(Response({}, fexo::NotificationData("\xc0\xaf"))), fexo::EncodingError);
}

} // namespace
