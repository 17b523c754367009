#pragma once

#include <FeXONotificationService/DataStorage.hpp>
#include <FeXONotificationService/FeXOInboxSnapshot.hpp>
#include <FeXONotificationService/NotificationCounts.hpp>
#include <FeXONotificationService/NotificationPage.hpp>
#include <FeXOPlatform/Result.hpp>
#include <FeXOPlatform/StoreRecordIndex.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace fexo {

// The inbox view of the records of a DataRepository: pages newest first, counts, mark all read,
// all answered by the index that the store keeps over the "response_" keys (never by decoding
// every record). The index is made when UserDefaultsDataStorage first opens the store. Only the
// records that carry a notification (Response::carriesNotification(), which the index states in
// SQL) are the inbox's: a server's refusal stays in the store, but out of the inbox.
//
// Runs on the caller's thread; safe from several threads, like the storage. Stored bytes that do
// not decode end the process as in fetchAllNotifications().
class NotificationInbox {
public:
    // The index of the notification records: by createdAt, and those whose isRead is not true;
    // the records that carry no notification are not in it.
    static const StoreRecordIndex& recordIndex();

    explicit NotificationInbox(std::shared_ptr<DataStorage> storage);

    // See FeXOService::fetchNotifications().
    Result<NotificationPage> page(std::size_t limit, std::string_view after);
    NotificationCounts counts();
    // See FeXOService::inboxSnapshot().
    FeXOInboxSnapshot snapshot(std::size_t newest);
    std::uint64_t unreadCount();
    // Every record whose isRead is not true rewritten with isRead true under its own key, in one
    // transaction; a refusal of the store is reported as for any write.
    void markAllAsRead();
    // The same, telling whether the store kept it (see DataRepository::writeChecked()).
    Result<void> markAllAsReadChecked();

private:
    std::shared_ptr<DataStorage> storage_;
};

} // namespace fexo
