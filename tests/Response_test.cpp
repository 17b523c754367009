#include <FeXONotificationService/Response.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <gtest/gtest.h>

#include <cmath>

namespace {

using fexo::Response;
using fexo::ResponseAccess;

Response decode(const std::string& json)
{
    return fexo::JSONDecoder{}.decode<Response>(json);
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
