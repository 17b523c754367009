#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/UNNotificationContent.hpp>

namespace fexo {

// Notification content that may be changed before it is shown. Not synchronised: one thread
// at a time.
class FEXO_EXPORT UNMutableNotificationContent : public UNNotificationContent {
public:
    UNMutableNotificationContent() = default;
    explicit UNMutableNotificationContent(const UNNotificationContent& content) : UNNotificationContent(content) { }

    void setTitle(std::string title) { title_ = std::move(title); }
    void setBody(std::string body) { body_ = std::move(body); }
    void setUserInfo(AnyValue userInfo) { userInfo_ = std::move(userInfo); }
};

} // namespace fexo
