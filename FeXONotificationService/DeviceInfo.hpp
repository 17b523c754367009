#pragma once

#include <FeXONotificationService/Payloadable.hpp>
#include <FeXONotificationService/PushProvider.hpp>

#include <string>

namespace fexo {

// The body of a device registration. Every field is required and always written, an empty
// text as "". The JSON keys are the field names, "imeI1" and "imeI2" with their mixed case.
struct DeviceInfo : Payloadable {
    std::string deviceId;
    std::string registrationId; // the device's push token
    std::string mobileNumber;
    std::string appId;
    std::string osType;
    std::string osVersion;
    std::string imeI1;
    std::string imeI2;
    std::string data;
    PushProvider pushNotificationProvider = PushProvider::FCM;

    DeviceInfo() = default;
    DeviceInfo(std::string deviceId, std::string registrationId, std::string mobileNumber, std::string appId,
               std::string osType, std::string osVersion, std::string imeI1, std::string imeI2, std::string data,
               PushProvider pushNotificationProvider);

    bool operator==(const DeviceInfo& other) const;

protected:
    void encode(nlohmann::json& json) const override;
};

void to_json(nlohmann::json& json, const DeviceInfo& value);
// Every key is required: keyNotFound, valueNotFound for null, typeMismatch, and dataCorrupted
// for a provider outside 1 to 3.
void from_json(const nlohmann::json& json, DeviceInfo& value);

} // namespace fexo
