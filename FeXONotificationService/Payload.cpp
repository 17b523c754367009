#include <FeXONotificationService/Payload.hpp>

namespace fexo {

void from_json(const nlohmann::json& json, Payload& value)
{
    coding::requireObject(json);
    coding::decodeIfPresent(json, "recipientId", value.recipientId);
    coding::decodeIfPresent(json, "registration_id", value.registration_id);
    coding::decodeIfPresent(json, "aps", value.aps);
    coding::decodeIfPresent(json, "google.c.sender.id", value.google_c_sender_id);
    coding::decodeIfPresent(json, "gcm.message_id", value.gcm_message_id);
    coding::decodeIfPresent(json, "google.c.fid", value.google_c_fid);
}

void from_json(const nlohmann::json& json, Payload::Aps& value)
{
    coding::requireObject(json);
    coding::decodeIfPresent(json, "alert", value.alert);
}

void from_json(const nlohmann::json& json, Payload::Aps::Alert& value)
{
    coding::requireObject(json);
    coding::decodeIfPresent(json, "title", value.title);
    coding::decodeIfPresent(json, "body", value.body);
}

} // namespace fexo
