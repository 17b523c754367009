#pragma once

#include <FeXONotificationService/Payloadable.hpp>

#include <string>

namespace fexo {

// The body of a notification-content request: whom the push was for and through which
// registration. Both keys are required and always written.
struct NotificationRequestInfo : Payloadable {
    std::string recipientId;
    std::string registrationId;

    NotificationRequestInfo() = default;
    NotificationRequestInfo(std::string recipientId, std::string registrationId)
        : recipientId(std::move(recipientId)), registrationId(std::move(registrationId))
    {
    }

    bool operator==(const NotificationRequestInfo& other) const
    {
        return recipientId == other.recipientId && registrationId == other.registrationId;
    }

protected:
    void encode(nlohmann::json& json) const override;
};

void to_json(nlohmann::json& json, const NotificationRequestInfo& value);
void from_json(const nlohmann::json& json, NotificationRequestInfo& value);

} // namespace fexo
