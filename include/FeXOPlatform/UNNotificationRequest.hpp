#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/UNNotificationContent.hpp>

#include <memory>
#include <string>

namespace fexo {

// A notification the system asks the extension to handle: an identifier and its content.
class FEXO_EXPORT UNNotificationRequest {
public:
    UNNotificationRequest(std::string identifier, std::shared_ptr<const UNNotificationContent> content)
        : identifier_(std::move(identifier)),
          content_(content ? std::move(content) : std::make_shared<const UNNotificationContent>())
    {
    }

    const std::string& identifier() const { return identifier_; }
    const UNNotificationContent& content() const { return *content_; }

private:
    std::string identifier_;
    std::shared_ptr<const UNNotificationContent> content_;
};

} // namespace fexo
