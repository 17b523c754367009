#include <FeXONotificationService/FeXOService.hpp>

#include <FeXONotificationService/DeviceInfo.hpp>
#include <FeXONotificationService/FeXOServiceCollaborators.hpp>
#include <FeXONotificationService/NotificationInbox.hpp>
#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/StoreObserver.hpp>
#include <FeXOPlatform/UIDevice.hpp>

namespace fexo {

FeXOService::FeXOService()
    : collaborators_(
          std::make_unique<Collaborators>(Collaborators{PushNotificationProvider(std::make_shared<NetworkingService>()),
                                                        DataRepository(std::make_shared<UserDefaultsDataStorage>())}))
{
}

FeXOService::FeXOService(const FeXOService& other)
    : collaborators_(std::make_unique<Collaborators>(*other.collaborators_))
{
}

FeXOService& FeXOService::operator=(const FeXOService& other)
{
    if (this != &other) *collaborators_ = *other.collaborators_;
    return *this;
}

FeXOService::~FeXOService() = default;

void FeXOService::registerDevice(std::string token, std::string deviceID, std::string imeI1, std::string imeI2,
                                 std::string mobileNumber, PushProvider provider,
                                 RegistrationCompletion completion) const
{
    DeviceInfo deviceInfo(std::move(deviceID), std::move(token), std::move(mobileNumber),
                          sharedConfiguration().bundleId, "iOS", UIDevice::current().systemVersion(), std::move(imeI1),
                          std::move(imeI2), "", provider);
    collaborators_->pushProvider.registerDevice(
        std::move(deviceInfo),
        [completion = std::move(completion)](Result<RegisterDeviceModel> result) { completion(std::move(result)); });
}

std::optional<std::vector<Response>> FeXOService::fetchAllNotifications()
{
    return collaborators_->dataPersistence.fetchAllNotifications();
}

std::optional<Response> FeXOService::fetchNotification(std::string_view id)
{
    return collaborators_->dataPersistence.fetchNotification(id);
}

void FeXOService::deleteAllNotifications()
{
    collaborators_->dataPersistence.deleteAllNotifications();
}

void FeXOService::deleteNotification(std::string_view id)
{
    collaborators_->dataPersistence.deleteNotification(id);
}

void FeXOService::markNotificationAsRead(std::string_view id)
{
    collaborators_->dataPersistence.markNotificationAsRead(id);
}

void FeXOService::write(const Response& response)
{
    collaborators_->dataPersistence.write(response);
}

void FeXOService::logout()
{
    deleteAllNotifications();
}

Result<NotificationPage> FeXOService::fetchNotifications(std::size_t limit, std::string_view after)
{
    return NotificationInbox(collaborators_->dataPersistence.dataStorage()).page(limit, after);
}

FeXOInboxSnapshot FeXOService::inboxSnapshot(std::size_t newest)
{
    return NotificationInbox(collaborators_->dataPersistence.dataStorage()).snapshot(newest);
}

std::uint64_t FeXOService::unreadCount()
{
    return NotificationInbox(collaborators_->dataPersistence.dataStorage()).unreadCount();
}

void FeXOService::markAllNotificationsAsRead()
{
    NotificationInbox(collaborators_->dataPersistence.dataStorage()).markAllAsRead();
}

NotificationObservation FeXOService::observeNotifications(std::function<void(NotificationCounts)> callback)
{
    const auto& storage = collaborators_->dataPersistence.dataStorage();
    const auto databasePath = storage->userDefaults().databasePath();
    std::string whyNot;
    const auto token = StoreObserver::add(
        databasePath,
        [inbox = NotificationInbox(storage), callback = std::move(callback)]() mutable {
            try {
                callback(inbox.counts());
            } catch (...) {
                // Nothing may leave the observer thread; the next change calls again.
            }
        },
        whyNot);
    if (token == 0) return NotificationObservation(std::move(whyNot));
    return NotificationObservation(token);
}

} // namespace fexo
