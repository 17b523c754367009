#include <FeXONotificationService/ErrorModel.hpp>

namespace fexo {

void to_json(nlohmann::json& json, const ErrorModel& value)
{
    json = nlohmann::json::object();
    coding::encodeIfPresent(json, "field", value.field_);
    coding::encodeIfPresent(json, "errorMessage", value.errorMessage_);
}

void from_json(const nlohmann::json& json, ErrorModel& value)
{
    coding::requireObject(json);
    coding::decodeIfPresent(json, "field", value.field_);
    coding::decodeIfPresent(json, "errorMessage", value.errorMessage_);
}

} // namespace fexo
