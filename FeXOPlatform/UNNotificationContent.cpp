#include <FeXOPlatform/UNMutableNotificationContent.hpp>
#include <FeXOPlatform/UNNotificationContent.hpp>

namespace fexo {

UNNotificationContent::UNNotificationContent(std::string title, std::string body, AnyValue userInfo)
    : title_(std::move(title)), body_(std::move(body)), userInfo_(std::move(userInfo))
{
}

UNNotificationContent::~UNNotificationContent() = default;

std::shared_ptr<UNNotificationContent> UNNotificationContent::mutableCopy() const
{
    return std::make_shared<UNMutableNotificationContent>(*this);
}

} // namespace fexo
