#pragma once

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/FeXOStoreError.hpp>
#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/Result.hpp>

#include <string_view>

namespace fexo {

// The changes a FeXOService makes to the shared store, each telling whether the store kept it.
// FeXOService's own operations return nothing: on a full disk, a read-only store or a lock held
// by other processes past every wait they leave one line on standard error and the store as it
// was. The same operations here do exactly the same (the same line included), and give failure
// with a FeXOStoreError in that case, success otherwise.
//
// Made from a service, whose store it shares (the store is opened on the first change, as for the
// service). Each call runs synchronously on the calling thread; any thread. Integration mistakes
// (a missing configuration, an app group that cannot be opened, a stored record that cannot be
// read back) end the process as they do for the service.
class FEXO_EXPORT FeXOStoreChanges {
public:
    explicit FeXOStoreChanges(const FeXOService& service);

    // FeXOService::write().
    [[nodiscard]] Result<void> write(const Response& response);
    // FeXOService::markNotificationAsRead(): prints "Item Not Found!" and succeeds when there is
    // no such record (nothing was to change).
    [[nodiscard]] Result<void> markNotificationAsRead(std::string_view id);
    // FeXOService::markAllNotificationsAsRead(), in one transaction.
    [[nodiscard]] Result<void> markAllNotificationsAsRead();
    // FeXOService::deleteNotification(): removing a record that is not there succeeds.
    [[nodiscard]] Result<void> deleteNotification(std::string_view id);
    // FeXOService::deleteAllNotifications(), in one transaction: every record goes, or none.
    [[nodiscard]] Result<void> deleteAllNotifications();
    // FeXOService::logout(): exactly deleteAllNotifications().
    [[nodiscard]] Result<void> logout();

private:
    FeXOService service_;
};

} // namespace fexo
