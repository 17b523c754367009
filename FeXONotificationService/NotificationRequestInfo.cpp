#include <FeXONotificationService/NotificationRequestInfo.hpp>

namespace fexo {

void NotificationRequestInfo::encode(nlohmann::json& json) const
{
    to_json(json, *this);
}

void to_json(nlohmann::json& json, const NotificationRequestInfo& value)
{
    json = nlohmann::json::object();
    coding::encodeRequired(json, "recipientId", value.recipientId);
    coding::encodeRequired(json, "registrationId", value.registrationId);
}

void from_json(const nlohmann::json& json, NotificationRequestInfo& value)
{
    coding::requireObject(json);
    coding::decodeRequired(json, "recipientId", value.recipientId);
    coding::decodeRequired(json, "registrationId", value.registrationId);
}

} // namespace fexo
