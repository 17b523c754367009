#pragma once

#include <FeXONotificationService/DataPersistenceProtocol.hpp>
#include <FeXONotificationService/DataStorage.hpp>

#include <memory>
#include <string>
#include <string_view>

namespace fexo {

// Notification records in the app group store, each under "response_" + its id (the bare prefix
// for a record without id). Every key that begins with the prefix, case-sensitively, is taken for
// a record; no other key is touched. No index is kept: the records are the prefixed keys present
// at the moment of the call.
//
// A value type: copies share one storage object. Safe to use from several threads and beside
// other processes using the same app group; see each operation for what it guarantees then.
class DataRepository final : public DataPersistenceProtocol {
public:
    static constexpr std::string_view keyPrefix = "response_";

    explicit DataRepository(std::shared_ptr<DataStorage> dataStorage);

    // Replaces whatever was stored under the record's key.
    void write(const Response& element) override;
    // Every record as one snapshot, in no promised order; callers that need one sort.
    std::vector<Response> fetchAllNotifications() override;
    // The record stored under the key of `id`, used as is (an empty id reads the bare prefix).
    std::optional<Response> fetchNotification(std::string_view id) override;
    // Removes the records present when the call begins; one transaction, so a record another
    // process writes meanwhile is either removed whole or kept whole.
    void deleteAllNotifications() override;
    // Removing an absent record is silent.
    void deleteNotification(std::string_view id) override;
    // Stores a copy of the record under `id` with isRead set, under the key of the copy's own id
    // (which may differ from `id`; the old entry then stays). Prints "Item Not Found!" when there
    // is no record. The read and the write are one transaction, so a write of the same record by
    // another process is never lost between them.
    void markNotificationAsRead(std::string_view id) override;

    // The changes above, each telling whether the store kept it: failure with a FeXOStoreError
    // (after the line on standard error) when the store refused it and stayed as it was. Marking
    // a record that is not there prints "Item Not Found!" and succeeds: nothing was to change.
    Result<void> writeChecked(const Response& element);
    Result<void> deleteAllNotificationsChecked();
    Result<void> deleteNotificationChecked(std::string_view id);
    Result<void> markNotificationAsReadChecked(std::string_view id);

    const std::shared_ptr<DataStorage>& dataStorage() const { return dataStorage_; }

    static std::string key(std::string_view id);

private:
    std::shared_ptr<DataStorage> dataStorage_;
};

} // namespace fexo
