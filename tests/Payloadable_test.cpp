#include <FeXONotificationService/DeviceInfo.hpp>
#include <FeXONotificationService/NotificationRequestInfo.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::DecodingError;
using fexo::DeviceInfo;
using fexo::PushProvider;

nlohmann::json body(const fexo::Payloadable& p)
{
    const auto bytes = p.payload();
    EXPECT_TRUE(bytes.has_value());
    EXPECT_EQ(bytes->find_first_of(" \n"), std::string::npos) << "not compact: " << *bytes;
    return nlohmann::json::parse(bytes.value_or("null"));
}

TEST(RequestBodies, EmptyTextsAreStillWrittenEveryKeyWithItsType)
{
    DeviceInfo device;
    device.pushNotificationProvider = PushProvider::APNS;
    EXPECT_EQ(body(device), nlohmann::json::parse(R"({"deviceId":"","registrationId":"","mobileNumber":"","appId":"",
        "osType":"","osVersion":"","imeI1":"","imeI2":"","data":"","pushNotificationProvider":2})"));
    EXPECT_EQ(body(fexo::NotificationRequestInfo("r", "")), nlohmann::json::parse(R"({"recipientId":"r","registrationId":""})"));
}

TEST(RequestBodies, PayloadIsStableAndDecodesBackToTheRecord)
{
    const DeviceInfo device("d", "token", "+1", "app", "iOS", "12", "i1", "i2", "", PushProvider::pushWoosh);
    EXPECT_EQ(body(device), body(device));
    EXPECT_EQ(fexo::JSONDecoder{}.decode<DeviceInfo>(*device.payload()), device);
}

TEST(RequestBodies, TextThatIsNotUTF8GivesNoBodyAndPrintsTheError)
{
    testing::internal::CaptureStdout();
    const auto bytes = fexo::NotificationRequestInfo("\xff", "").payload();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_FALSE(bytes.has_value());
    EXPECT_NE(printed.find("invalidValue"), std::string::npos) << printed;
    EXPECT_EQ(printed.back(), '\n');
}

TEST(RequestBodies, DecodingRequiresEveryKey)
{
    const auto valid = nlohmann::json::parse(*DeviceInfo().payload());
    struct Case {
        std::string key;
        nlohmann::json value; // discarded = remove the key
        DecodingError::Kind kind;
    };
    const Case cases[] = {
        {"imeI1", nlohmann::json(nlohmann::json::value_t::discarded), DecodingError::Kind::keyNotFound},
        {"appId", nullptr, DecodingError::Kind::valueNotFound},
        {"osVersion", 12, DecodingError::Kind::typeMismatch},
        {"pushNotificationProvider", 0, DecodingError::Kind::dataCorrupted},
        {"pushNotificationProvider", 4, DecodingError::Kind::dataCorrupted},
        {"pushNotificationProvider", "1", DecodingError::Kind::typeMismatch},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key + " " + c.value.dump());
        auto json = valid;
        if (c.value.is_discarded()) json.erase(c.key); else json[c.key] = c.value;
        try {
            (void)fexo::JSONDecoder{}.decode<DeviceInfo>(json.dump());
            ADD_FAILURE() << "decoded";
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.kind(), c.kind);
        }
    }
}

} // namespace
