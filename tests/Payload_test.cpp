#include <FeXONotificationService/Payload.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::DecodingError;
using fexo::Payload;

Payload decode(const std::string& json)
{
    return fexo::JSONDecoder{}.decode<Payload>(json);
}

TEST(Payload, ReadsTheDottedKeysExactlyAndLeavesNearMissesNullsAndMissingPartsAbsent)
{
    const auto p =
        decode(R"({"recipientId":"r1","registration_id":"tok","aps":{"alert":{"title":"T","body":"B"},"badge":1},
        "google.c.sender.id":"s","gcm.message_id":"m","google.c.fid":"f","from":"x"})");
    EXPECT_EQ(*p.recipientId + *p.registration_id + *p.aps->alert->title + *p.aps->alert->body + *p.google_c_sender_id +
                  *p.gcm_message_id + *p.google_c_fid,
              "r1tokTBsmf");
    const auto q = decode(R"({"registrationId":"x","google_c_sender_id":"y","recipientId":null,"aps":{"alert":{}}})");
    EXPECT_FALSE(q.recipientId || q.registration_id || q.google_c_sender_id || q.aps->alert->title ||
                 q.aps->alert->body);
    EXPECT_FALSE(decode(R"({"aps":{}})").aps->alert);
}

TEST(Payload, AWrongKindAnywhereFailsTheWholePayloadWithItsPath)
{
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {R"({"aps":{"alert":"short form"}})", {"aps", "alert"}},
        {R"({"aps":{"alert":{"title":{"loc-key":"x"}}}})", {"aps", "alert", "title"}},
        {R"({"gcm.message_id":true})", {"gcm.message_id"}},
        {R"("text")", {}},
    };
    for (const auto& [json, path] : cases) {
        try {
            (void)decode(json);
            ADD_FAILURE() << "decoded " << json;
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.kind(), DecodingError::Kind::typeMismatch) << json;
            EXPECT_EQ(error.codingPath(), path) << json;
        }
    }
}

TEST(Payload, NestingBelowTheKnownKeysIsIgnoredHoweverDeep)
{
    std::string deep;
    for (int i = 0; i < 20000; ++i) deep += R"({"aps":)";
    deep += "1" + std::string(20000, '}');
    EXPECT_TRUE(decode(deep).aps && !decode(deep).aps->alert);
    EXPECT_NO_THROW(decode(R"({"other":)" + std::string(100000, '[') + std::string(100000, ']') + "}"));
}

} // namespace
