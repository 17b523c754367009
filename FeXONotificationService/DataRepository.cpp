#include <FeXONotificationService/DataRepository.hpp>

#include <FeXOPlatform/StandardOutput.hpp>

namespace fexo {

DataRepository::DataRepository(std::shared_ptr<DataStorage> dataStorage) : dataStorage_(std::move(dataStorage))
{
}

std::string DataRepository::key(std::string_view id)
{
    std::string key(keyPrefix);
    key.append(id);
    return key;
}

void DataRepository::write(const Response& element)
{
    (void)writeChecked(element);
}

Result<void> DataRepository::writeChecked(const Response& element)
{
    return dataStorage_->saveChecked(element, key(element.id.value_or("")));
}

std::vector<Response> DataRepository::fetchAllNotifications()
{
    return dataStorage_->loadAll(keyPrefix);
}

std::optional<Response> DataRepository::fetchNotification(std::string_view id)
{
    return dataStorage_->load(key(id));
}

void DataRepository::deleteAllNotifications()
{
    (void)deleteAllNotificationsChecked();
}

Result<void> DataRepository::deleteAllNotificationsChecked()
{
    auto& defaults = dataStorage_->userDefaults();
    const bool done = defaults.performExclusively([&] {
        for (const auto& stored : defaults.keysWithPrefix(keyPrefix)) defaults.removeObjectForKey(stored);
    });
    if (!done) return Result<void>::failure(reportUnwrittenChange(defaults));
    return Result<void>::success();
}

void DataRepository::deleteNotification(std::string_view id)
{
    (void)deleteNotificationChecked(id);
}

Result<void> DataRepository::deleteNotificationChecked(std::string_view id)
{
    auto& defaults = dataStorage_->userDefaults();
    if (!defaults.removeObjectForKey(key(id))) return Result<void>::failure(reportUnwrittenChange(defaults));
    return Result<void>::success();
}

void DataRepository::markNotificationAsRead(std::string_view id)
{
    (void)markNotificationAsReadChecked(id);
}

Result<void> DataRepository::markNotificationAsReadChecked(std::string_view id)
{
    auto& defaults = dataStorage_->userDefaults();
    bool began = false;
    bool found = false;
    const bool done = defaults.performExclusively([&] {
        began = true;
        auto record = dataStorage_->load(key(id));
        if (!record) return;
        found = true;
        record->isRead = true;
        // Inside the transaction a refusal shows at its commit, not here.
        (void)dataStorage_->saveChecked(*record, key(record->id.value_or("")));
    });
    if (began && !found) printLine("Item Not Found!");
    // The store's changes are written at commit, so a refusal shows here, not in the save.
    if (!done && (found || !began)) return Result<void>::failure(reportUnwrittenChange(defaults));
    return Result<void>::success();
}

} // namespace fexo
