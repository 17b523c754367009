#include <FeXONotificationService/DeviceInfo.hpp>
#include <FeXONotificationService/NotificationRequestInfo.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::DecodingError;
using fexo::DeviceInfo;
using fexo::PushProvider;

TEST(RequestBodies, EveryKeyIsWrittenCompactlyWithItsTypeAndDecodesBackToTheRecord)
{
    DeviceInfo device;
    device.pushNotificationProvider = PushProvider::APNS;
    EXPECT_EQ(
        *device.payload(),
        R"({"appId":"","data":"","deviceId":"","imeI1":"","imeI2":"","mobileNumber":"","osType":"","osVersion":"",)"
        R"("pushNotificationProvider":2,"registrationId":""})");
    EXPECT_EQ(*fexo::NotificationRequestInfo("r", "").payload(), R"({"recipientId":"r","registrationId":""})");
    for (const auto& [provider, raw] :
         {std::pair(PushProvider::FCM, 1), std::pair(PushProvider::APNS, 2), std::pair(PushProvider::pushWoosh, 3)}) {
        device.pushNotificationProvider = provider;
        EXPECT_EQ(nlohmann::json::parse(*device.payload())["pushNotificationProvider"], raw);
    }
    const DeviceInfo full("d", "token", "+1", "app", "iOS", "12", "i1", "i2", "", PushProvider::pushWoosh);
    EXPECT_EQ(fexo::JSONDecoder{}.decode<DeviceInfo>(*full.payload()), full);
}

TEST(RequestBodies, DecodingRequiresEveryKey)
{
    const auto valid = nlohmann::json::parse(*DeviceInfo().payload());
    const std::tuple<std::string, nlohmann::json, DecodingError::Kind> cases[] = {
        {"imeI1", nlohmann::json(nlohmann::json::value_t::discarded), DecodingError::Kind::keyNotFound},
        {"appId", nullptr, DecodingError::Kind::valueNotFound},
        {"osVersion", 12, DecodingError::Kind::typeMismatch},
        {"pushNotificationProvider", 4, DecodingError::Kind::dataCorrupted},
        {"pushNotificationProvider", 0, DecodingError::Kind::dataCorrupted},
        {"pushNotificationProvider", "1", DecodingError::Kind::typeMismatch},
    };
    for (const auto& [key, value, kind] : cases) {
        auto json = valid;
        if (value.is_discarded())
            json.erase(key);
        else
            json[key] = value;
        try {
            (void)fexo::JSONDecoder{}.decode<DeviceInfo>(json.dump());
            ADD_FAILURE() << "decoded " << json.dump();
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.kind(), kind) << json.dump();
        }
    }
}

} // namespace
