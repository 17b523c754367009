#pragma once

#include <FeXONotificationService/Networking.hpp>
#include <FeXONotificationService/NotificationRequestInfo.hpp>
#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/Result.hpp>

#include <functional>

namespace fexo {

// Fetches the content of one notification from the server through the adopter's network.
class NotificationContentProvider {
public:
    virtual ~NotificationContentProvider();

    virtual const Networking& network() const = 0;

    // Sends `requestInfo` on the notificationContent endpoint and passes the outcome on
    // untouched: the decoded record, or the transport or decoding error. Returns at once;
    // `completion` runs once on the network's callback thread (the shared URL session's
    // thread for NetworkingService), never inside this call.
    void fetchNotificationContent(NotificationRequestInfo requestInfo,
                                  std::function<void(Result<Response>)> completion) const;

protected:
    NotificationContentProvider() = default;
    NotificationContentProvider(const NotificationContentProvider&) = default;
    NotificationContentProvider& operator=(const NotificationContentProvider&) = default;
};

} // namespace fexo
