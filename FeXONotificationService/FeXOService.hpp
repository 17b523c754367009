#pragma once

#include <FeXONotificationService/DataRepository.hpp>
#include <FeXONotificationService/PushNotificationProvider.hpp>
#include <FeXONotificationService/PushProvider.hpp>
#include <FeXONotificationService/RegisterDeviceModel.hpp>
#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/Result.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fexo {

// The host app's entry to the service: registers the device with the server and gives access
// to the notification records that the notification extension has stored.
//
// A value: creating one reads no file and opens nothing; the configuration is read on the
// first registration or store access, the shared store opened on the first local operation.
// Copies share the store handle. Local operations run synchronously on the calling thread and
// may be called from any thread; integration mistakes (missing configuration, an app group
// that cannot be opened, a stored record that cannot be read back) end the process.
class FEXO_EXPORT FeXOService {
public:
    using RegistrationCompletion = std::function<void(Result<RegisterDeviceModel>)>;

    FeXOService();
    // For tests and tools: a service over the given collaborators.
    FeXOService(PushNotificationProvider pushProvider, DataRepository dataPersistence);
    FeXOService(const FeXOService& other);
    FeXOService& operator=(const FeXOService& other);
    ~FeXOService();

    // Registers the device: sends its identifiers, push token and provider together with the
    // configured bundle id, "iOS" as the system type and this system's version. Returns at once;
    // `completion` runs exactly once, on the URL session's thread (never the caller's, never
    // inside this call), with the server's decoded answer, or with the transport error
    // (fexo::URLError) or the decoding error (fexo::DecodingError) as they came. The HTTP status
    // is not consulted: read the answer's errorMessage and errors (encode it to JSON) to learn
    // whether the server accepted the registration. Nothing is validated locally.
    void registerDevice(std::string token, std::string deviceID, std::string imeI1, std::string imeI2,
                        std::string mobileNumber, PushProvider provider, RegistrationCompletion completion) const;

    // Every stored record, in no promised order (sort by your own key); always present.
    std::optional<std::vector<Response>> fetchAllNotifications();
    // The record stored under `id` (used as given), or nothing.
    std::optional<Response> fetchNotification(std::string_view id);
    void deleteAllNotifications();
    // Removing a record that is not there is silent.
    void deleteNotification(std::string_view id);
    // Stores the record with isRead true; prints "Item Not Found!" when there is none.
    void markNotificationAsRead(std::string_view id);
    // Stores the record under its id, replacing the one stored there.
    void write(const Response& response);
    // Deletes every stored record, and nothing else: no server call, the device stays registered.
    void logout();

private:
    PushNotificationProvider pushProvider_;
    DataRepository dataPersistence_;
};

} // namespace fexo
