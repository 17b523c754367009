#include <FeXONotificationService/DeviceInfo.hpp>

#include <tuple>

namespace fexo {

DeviceInfo::DeviceInfo(std::string deviceId, std::string registrationId, std::string mobileNumber, std::string appId,
                       std::string osType, std::string osVersion, std::string imeI1, std::string imeI2,
                       std::string data, PushProvider pushNotificationProvider)
    : deviceId(std::move(deviceId)), registrationId(std::move(registrationId)), mobileNumber(std::move(mobileNumber)),
      appId(std::move(appId)), osType(std::move(osType)), osVersion(std::move(osVersion)), imeI1(std::move(imeI1)),
      imeI2(std::move(imeI2)), data(std::move(data)), pushNotificationProvider(pushNotificationProvider)
{
}

bool DeviceInfo::operator==(const DeviceInfo& other) const
{
    const auto fields = [](const DeviceInfo& d) {
        return std::tie(d.deviceId, d.registrationId, d.mobileNumber, d.appId, d.osType, d.osVersion, d.imeI1, d.imeI2,
                        d.data, d.pushNotificationProvider);
    };
    return fields(*this) == fields(other);
}

void DeviceInfo::encode(nlohmann::json& json) const
{
    to_json(json, *this);
}

void to_json(nlohmann::json& json, const DeviceInfo& value)
{
    json = nlohmann::json::object();
    coding::encodeRequired(json, "deviceId", value.deviceId);
    coding::encodeRequired(json, "registrationId", value.registrationId);
    coding::encodeRequired(json, "mobileNumber", value.mobileNumber);
    coding::encodeRequired(json, "appId", value.appId);
    coding::encodeRequired(json, "osType", value.osType);
    coding::encodeRequired(json, "osVersion", value.osVersion);
    coding::encodeRequired(json, "imeI1", value.imeI1);
    coding::encodeRequired(json, "imeI2", value.imeI2);
    coding::encodeRequired(json, "data", value.data);
    coding::encodeRequired(json, "pushNotificationProvider", value.pushNotificationProvider);
}

void from_json(const nlohmann::json& json, DeviceInfo& value)
{
    coding::requireObject(json);
    coding::decodeRequired(json, "deviceId", value.deviceId);
    coding::decodeRequired(json, "registrationId", value.registrationId);
    coding::decodeRequired(json, "mobileNumber", value.mobileNumber);
    coding::decodeRequired(json, "appId", value.appId);
    coding::decodeRequired(json, "osType", value.osType);
    coding::decodeRequired(json, "osVersion", value.osVersion);
    coding::decodeRequired(json, "imeI1", value.imeI1);
    coding::decodeRequired(json, "imeI2", value.imeI2);
    coding::decodeRequired(json, "data", value.data);
    coding::decodeRequired(json, "pushNotificationProvider", value.pushNotificationProvider);
}

} // namespace fexo
