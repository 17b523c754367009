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

TEST(Payload, ReadsTheDottedKeysAndIgnoresTheRest)
{
    const auto p = decode(R"({"recipientId":"r1","registration_id":"tok","aps":{"alert":{"title":"T","body":"B"},"badge":1},
        "google.c.sender.id":"s","gcm.message_id":"m","google.c.fid":"f","from":"x"})");
    EXPECT_EQ(p.recipientId, "r1");
    EXPECT_EQ(p.registration_id, "tok");
    ASSERT_TRUE(p.aps && p.aps->alert);
    EXPECT_EQ(p.aps->alert->title, "T");
    EXPECT_EQ(p.aps->alert->body, "B");
    EXPECT_EQ(p.google_c_sender_id, "s");
    EXPECT_EQ(p.gcm_message_id, "m");
    EXPECT_EQ(p.google_c_fid, "f");
}

TEST(Payload, NearMissKeysNullsAndMissingPartsStayAbsent)
{
    const auto p = decode(R"({"registrationId":"x","google_c_sender_id":"y","recipientId":null,"aps":{"alert":{}}})");
    EXPECT_FALSE(p.recipientId || p.registration_id || p.google_c_sender_id || p.gcm_message_id || p.google_c_fid);
    ASSERT_TRUE(p.aps && p.aps->alert);
    EXPECT_FALSE(p.aps->alert->title || p.aps->alert->body);
    EXPECT_FALSE(decode(R"({"aps":{}})").aps->alert);
    EXPECT_FALSE(decode("{}").aps);
}

TEST(Payload, AWrongKindAnywhereFailsTheWholePayload)
{
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {R"({"aps":{"alert":"short form"}})", {"aps", "alert"}},
        {R"({"recipientId":12})", {"recipientId"}},
        {R"({"aps":[]})", {"aps"}},
        {R"({"aps":{"alert":{"title":{"loc-key":"x"}}}})", {"aps", "alert", "title"}},
        {R"({"gcm.message_id":true})", {"gcm.message_id"}},
        {R"("text")", {}},
    };
    for (const auto& [json, path] : cases) {
        SCOPED_TRACE(json);
        try {
            (void)decode(json);
            ADD_FAILURE() << "decoded";
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.kind(), DecodingError::Kind::typeMismatch);
            EXPECT_EQ(error.codingPath(), path);
            EXPECT_NE(error.description().find("typeMismatch"), std::string::npos);
        }
    }
}

TEST(Payload, DeepOrHugeInputFailsCleanly)
{
    std::string deep;
    for (int i = 0; i < 20000; ++i) deep += R"({"aps":)";
    deep += "1";
    for (int i = 0; i < 20000; ++i) deep += "}";
    // Nesting below the known keys is ignored, however deep; it must not exhaust the stack.
    const auto p = decode(deep);
    EXPECT_TRUE(p.aps && !p.aps->alert);
    EXPECT_NO_THROW(decode(R"({"other":)" + std::string(100000, '[') + std::string(100000, ']') + "}"));
    EXPECT_THROW(decode(R"({"recipientId":1e99999})"), DecodingError);
    EXPECT_THROW(decode(R"({"recipientId":"\ud800"})"), DecodingError);
}

} // namespace
