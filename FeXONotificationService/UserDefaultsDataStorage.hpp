#pragma once

#include <FeXONotificationService/DataStorage.hpp>

#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace fexo {

// The app group's user defaults as record storage; the suite is the configuration's appGroup.
// Constructing touches nothing: the configuration is loaded and the store opened on first use;
// the first open also gives an older store the records' index (NotificationInbox).
// Shared by reference between the copies of a repository.
//
// Threads: safe to use from several threads at once; concurrent first uses open the store once.
// Fatal errors, each ending the process:
//   "App Group Not Found " + appGroup                                  the suite cannot be opened
//   "APP save New ID NotificationService with error " + localized text  a record cannot be encoded
//   "APP load New ID NotificationService with error " + description     stored bytes do not decode
//   a message naming the database file                                 the store cannot be read
// A write the store refuses is not fatal: see reportUnwrittenChange().
class UserDefaultsDataStorage final : public DataStorage {
public:
    UserDefaultsDataStorage() = default;
    UserDefaultsDataStorage(const UserDefaultsDataStorage&) = delete;
    UserDefaultsDataStorage& operator=(const UserDefaultsDataStorage&) = delete;

    UserDefaults& userDefaults() override;
    Result<void> saveChecked(const Response& response, std::string_view key) override;
    std::optional<Response> load(std::string_view key) override;
    // One range scan of the store, then one decode per record.
    std::vector<Response> loadAll(std::string_view keyPrefix) override;

    // A record's stored bytes and back; failures end the process with the messages above.
    static std::string encodeRecord(const Response& response);
    static Response decodeRecord(std::string_view bytes);

private:
    std::once_flag opening_;
    std::shared_ptr<UserDefaults> userDefaults_;
};

} // namespace fexo
