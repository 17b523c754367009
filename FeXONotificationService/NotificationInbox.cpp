#include <FeXONotificationService/NotificationInbox.hpp>

#include <FeXONotificationService/DataRepository.hpp>
#include <FeXONotificationService/NotificationCursor.hpp>
#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/DecodingError.hpp>

#include <algorithm>
#include <limits>

namespace fexo {

const StoreRecordIndex& NotificationInbox::recordIndex()
{
    static const StoreRecordIndex index("fexo_records", DataRepository::keyPrefix, "createdAt", "isRead",
                                        {"data.text", "data.sender"}); // Response::carriesNotification()
    return index;
}

NotificationInbox::NotificationInbox(std::shared_ptr<DataStorage> storage) : storage_(std::move(storage))
{
}

Result<NotificationPage> NotificationInbox::page(std::size_t limit, std::string_view after)
{
    std::optional<StoreRecordIndex::Position> position;
    if (!after.empty()) {
        position = NotificationCursor::decode(after);
        if (!position) {
            return Result<NotificationPage>::failure(
                DecodingError::dataCorrupted("The page cursor is not one that fetchNotifications returned."));
        }
    }
    NotificationPage page;
    if (limit == 0) {
        page.next = std::string(after);
        return Result<NotificationPage>::success(std::move(page));
    }
    // One row more than asked tells whether another page follows; no page is longer than SQLite
    // can count.
    limit = std::min<std::size_t>(limit, std::numeric_limits<std::int64_t>::max() - 1);
    auto rows = recordIndex().page(storage_->userDefaults(), limit + 1, position);
    const bool more = rows.size() > limit;
    if (more) rows.pop_back();
    page.records.reserve(rows.size());
    for (const auto& row : rows) page.records.push_back(UserDefaultsDataStorage::decodeRecord(row.bytes));
    if (more) page.next = NotificationCursor::encode(rows.back().position);
    return Result<NotificationPage>::success(std::move(page));
}

NotificationCounts NotificationInbox::counts()
{
    const auto counts = recordIndex().counts(storage_->userDefaults());
    return {counts.total, counts.unflagged};
}

FeXOInboxSnapshot NotificationInbox::snapshot(std::size_t newest)
{
    newest = std::min<std::size_t>(newest, std::numeric_limits<std::int64_t>::max());
    const auto glance = recordIndex().glance(storage_->userDefaults(), newest);
    FeXOInboxSnapshot snapshot{{glance.counts.total, glance.counts.unflagged}, {}};
    snapshot.newest.reserve(glance.first.size());
    for (const auto& row : glance.first) snapshot.newest.push_back(UserDefaultsDataStorage::decodeRecord(row.bytes));
    return snapshot;
}

std::uint64_t NotificationInbox::unreadCount()
{
    return recordIndex().unflaggedCount(storage_->userDefaults());
}

void NotificationInbox::markAllAsRead()
{
    (void)markAllAsReadChecked();
}

Result<void> NotificationInbox::markAllAsReadChecked()
{
    auto& store = storage_->userDefaults();
    const bool done = recordIndex().rewriteUnflagged(store, [](std::string_view bytes) {
        auto record = UserDefaultsDataStorage::decodeRecord(bytes);
        record.isRead = true;
        return UserDefaultsDataStorage::encodeRecord(record);
    });
    if (!done) return Result<void>::failure(reportUnwrittenChange(store));
    return Result<void>::success();
}

} // namespace fexo
