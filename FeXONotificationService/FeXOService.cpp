#include <FeXONotificationService/FeXOService.hpp>

#include <FeXONotificationService/DeviceInfo.hpp>
#include <FeXONotificationService/NotificationInbox.hpp>
#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/StoreObserver.hpp>
#include <FeXOPlatform/UIDevice.hpp>

namespace fexo {

FeXOService::FeXOService()
    : pushProvider_(std::make_shared<NetworkingService>()),
      dataPersistence_(std::make_shared<UserDefaultsDataStorage>())
{
}

FeXOService::FeXOService(PushNotificationProvider pushProvider, DataRepository dataPersistence)
    : pushProvider_(std::move(pushProvider)), dataPersistence_(std::move(dataPersistence))
{
}

FeXOService::FeXOService(const FeXOService& other) = default;
FeXOService& FeXOService::operator=(const FeXOService& other) = default;
FeXOService::~FeXOService() = default;

void FeXOService::registerDevice(std::string token, std::string deviceID, std::string imeI1, std::string imeI2,
                                 std::string mobileNumber, PushProvider provider,
                                 RegistrationCompletion completion) const
{
    DeviceInfo deviceInfo(std::move(deviceID), std::move(token), std::move(mobileNumber),
                          sharedConfiguration().bundleId, "iOS", UIDevice::current().systemVersion(), std::move(imeI1),
                          std::move(imeI2), "", provider);
    pushProvider_.registerDevice(
        std::move(deviceInfo),
        [completion = std::move(completion)](Result<RegisterDeviceModel> result) { completion(std::move(result)); });
}

std::optional<std::vector<Response>> FeXOService::fetchAllNotifications()
{
    return dataPersistence_.fetchAllNotifications();
}

std::optional<Response> FeXOService::fetchNotification(std::string_view id)
{
    return dataPersistence_.fetchNotification(id);
}

void FeXOService::deleteAllNotifications()
{
    dataPersistence_.deleteAllNotifications();
}

void FeXOService::deleteNotification(std::string_view id)
{
    dataPersistence_.deleteNotification(id);
}

void FeXOService::markNotificationAsRead(std::string_view id)
{
    dataPersistence_.markNotificationAsRead(id);
}

void FeXOService::write(const Response& response)
{
    dataPersistence_.write(response);
}

void FeXOService::logout()
{
    deleteAllNotifications();
}

Result<NotificationPage> FeXOService::fetchNotifications(std::size_t limit, std::string_view after)
{
    return NotificationInbox(dataPersistence_.dataStorage()).page(limit, after);
}

std::uint64_t FeXOService::unreadCount()
{
    return NotificationInbox(dataPersistence_.dataStorage()).unreadCount();
}

void FeXOService::markAllNotificationsAsRead()
{
    NotificationInbox(dataPersistence_.dataStorage()).markAllAsRead();
}

NotificationObservation FeXOService::observeNotifications(std::function<void(NotificationCounts)> callback)
{
    const auto& storage = dataPersistence_.dataStorage();
    const auto databasePath = storage->userDefaults().databasePath();
    const auto token = StoreObserver::add(
        databasePath, [inbox = NotificationInbox(storage), callback = std::move(callback)]() mutable {
            try {
                callback(inbox.counts());
            } catch (...) {
                // Nothing may leave the observer thread; the next change calls again.
            }
        });
    return NotificationObservation(token);
}

} // namespace fexo
