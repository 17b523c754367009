#pragma once

#include <FeXOPlatform/AnyValue.hpp>
#include <FeXOPlatform/Export.hpp>

#include <memory>
#include <string>

namespace fexo {

// The content of a notification as the system delivered it: title, body and the push's
// user-info dictionary. Immutable; a changed version is made through mutableCopy().
class FEXO_EXPORT UNNotificationContent {
public:
    UNNotificationContent() = default;
    UNNotificationContent(std::string title, std::string body, AnyValue userInfo = AnyValue(AnyValue::Dictionary{}));
    virtual ~UNNotificationContent();

    const std::string& title() const { return title_; }
    const std::string& body() const { return body_; }
    // A dictionary whose keys and values may be of any kind.
    const AnyValue& userInfo() const { return userInfo_; }

    // A new copy that can be changed: a UNMutableNotificationContent unless a subclass
    // decides otherwise, so callers check the kind of what they get.
    virtual std::shared_ptr<UNNotificationContent> mutableCopy() const;

protected:
    UNNotificationContent(const UNNotificationContent&) = default;
    UNNotificationContent& operator=(const UNNotificationContent&) = default;

    std::string title_;
    std::string body_;
    AnyValue userInfo_ = AnyValue(AnyValue::Dictionary{});
};

} // namespace fexo
