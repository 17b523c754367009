#include <FeXONotificationService/RegisterDeviceModel.hpp>

namespace fexo {

void to_json(nlohmann::json& json, const RegisterDeviceModel& value)
{
    json = nlohmann::json::object();
    coding::encodeIfPresent(json, "errorMessage", value.errorMessage_);
    coding::encodeIfPresent(json, "errors", value.errors_);
}

void from_json(const nlohmann::json& json, RegisterDeviceModel& value)
{
    coding::requireObject(json);
    coding::decodeIfPresent(json, "errorMessage", value.errorMessage_);
    coding::decodeIfPresent(json, "errors", value.errors_);
}

} // namespace fexo
