#include <FeXONotificationService/NotificationData.hpp>

namespace fexo {

void to_json(nlohmann::json& json, const NotificationData& value)
{
    json = nlohmann::json::object();
    coding::encodeIfPresent(json, "text", value.text);
    coding::encodeIfPresent(json, "sender", value.sender);
}

void from_json(const nlohmann::json& json, NotificationData& value)
{
    coding::requireObject(json);
    coding::decodeIfPresent(json, "text", value.text);
    coding::decodeIfPresent(json, "sender", value.sender);
}

} // namespace fexo
