#include <FeXONotificationService/FeXOStoreChanges.hpp>

#include <FeXONotificationService/FeXOServiceCollaborators.hpp>
#include <FeXONotificationService/NotificationInbox.hpp>

namespace fexo {

FeXOStoreChanges::FeXOStoreChanges(const FeXOService& service) : service_(service)
{
}

Result<void> FeXOStoreChanges::write(const Response& response)
{
    return service_.collaborators_->dataPersistence.writeChecked(response);
}

Result<void> FeXOStoreChanges::markNotificationAsRead(std::string_view id)
{
    return service_.collaborators_->dataPersistence.markNotificationAsReadChecked(id);
}

Result<void> FeXOStoreChanges::markAllNotificationsAsRead()
{
    return NotificationInbox(service_.collaborators_->dataPersistence.dataStorage()).markAllAsReadChecked();
}

Result<void> FeXOStoreChanges::deleteNotification(std::string_view id)
{
    return service_.collaborators_->dataPersistence.deleteNotificationChecked(id);
}

Result<void> FeXOStoreChanges::deleteAllNotifications()
{
    return service_.collaborators_->dataPersistence.deleteAllNotificationsChecked();
}

Result<void> FeXOStoreChanges::logout()
{
    return deleteAllNotifications();
}

} // namespace fexo
