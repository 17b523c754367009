#pragma once

#include <FeXONotificationService/FeXOInboxSnapshot.hpp>
#include <FeXONotificationService/NotificationCounts.hpp>
#include <FeXONotificationService/NotificationObservation.hpp>
#include <FeXONotificationService/NotificationPage.hpp>
#include <FeXONotificationService/PushProvider.hpp>
#include <FeXONotificationService/RegisterDeviceModel.hpp>
#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/Result.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
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
// It holds its collaborators (the push provider and the record repository) by value: a copy
// has its own, and copies share the store handle. Local operations run synchronously on the calling thread and
// may be called from any thread; integration mistakes (missing configuration, an app group
// that cannot be opened, a stored record that cannot be read back) end the process.
class FEXO_EXPORT FeXOService {
public:
    using RegistrationCompletion = std::function<void(Result<RegisterDeviceModel>)>;

    FeXOService();
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

    // The inbox. Order and counts come from an index that the store keeps (built on the first
    // open of an older store), never from decoding every record.

    // One page of at most `limit` records: newest createdAt first, ties by id (key) ascending,
    // records without createdAt after all others. `after` is the `next` of the previous page,
    // empty for the first. Paging is by position, not offset: a record written or deleted
    // between two pages neither repeats nor shifts a later page, and every record present
    // throughout is seen exactly once. A `limit` of 0 reads nothing and gives an empty page whose
    // `next` is `after` itself (an `after` that is not a cursor still fails). Fails with a
    // fexo::DecodingError (dataCorrupted) for an `after` that this library did not produce.
    Result<NotificationPage> fetchNotifications(std::size_t limit, std::string_view after = {});
    // How many records have an isRead that is not true (absent or false).
    std::uint64_t unreadCount();
    // The counts and the `newest` newest records, in fetchNotifications()'s order, read in one
    // read transaction: what an inbox's badge and its first lines show together, never from two
    // different moments.
    FeXOInboxSnapshot inboxSnapshot(std::size_t newest);
    // Rewrites every record whose isRead is not true with isRead true, under its own key, in one
    // transaction; records already read are not touched.
    void markAllNotificationsAsRead();
    // Calls `callback` with the current counts after the set of records changed in any process
    // that shares the store and runs this version: a push stored by the extension, a mark, a
    // delete, a logout. Opens the store now; the observation is in place when this returns.
    //
    // Threads: callbacks run on the platform layer's observer thread (one per process, started
    // with the first observation and ended with the last), one at a time over all observations,
    // never on the URL session's thread and never inside a call of this process that changed
    // the store. Folding: changes that arrive while a callback runs, or together before the
    // thread wakes, are folded into one call; no delay is added, so the window is the time the
    // previous callback took (plus the wake-up). A change to the app group's other keys may
    // also call. An exception thrown by the callback is dropped.
    //
    // An empty handle, with its failure() saying why, when the store's files cannot be watched (a
    // read-only file system where the watched file does not exist yet, no inotify instance or
    // watch left for this user).
    [[nodiscard]] NotificationObservation observeNotifications(std::function<void(NotificationCounts)> callback);

private:
    friend class FeXOStoreChanges;
    struct Collaborators;
    std::unique_ptr<Collaborators> collaborators_; // never null
};

} // namespace fexo
