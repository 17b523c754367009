#include <FeXONotificationService/Endpoint.hpp>
#include <FeXONotificationService/NotificationContentProvider.hpp>

#include <utility>

namespace fexo {

NotificationContentProvider::~NotificationContentProvider() = default;

void NotificationContentProvider::fetchNotificationContent(NotificationRequestInfo requestInfo,
                                                           std::function<void(Result<Response>)> completion) const
{
    network().request<Response>(Endpoint::notificationContent(std::move(requestInfo)), std::move(completion));
}

} // namespace fexo
