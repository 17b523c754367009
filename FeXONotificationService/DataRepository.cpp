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
    dataStorage_->save(element, key(element.id.value_or("")));
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
    auto& defaults = dataStorage_->userDefaults();
    const bool done = defaults.performExclusively([&] {
        for (const auto& stored : defaults.keysWithPrefix(keyPrefix)) defaults.removeObjectForKey(stored);
    });
    if (!done) reportUnwrittenChange(defaults);
}

void DataRepository::deleteNotification(std::string_view id)
{
    auto& defaults = dataStorage_->userDefaults();
    if (!defaults.removeObjectForKey(key(id))) reportUnwrittenChange(defaults);
}

void DataRepository::markNotificationAsRead(std::string_view id)
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
        write(*record);
    });
    // The store's changes are written at commit, so a refusal shows here, not in write().
    if (!done && (found || !began)) reportUnwrittenChange(defaults);
    if (began && !found) printLine("Item Not Found!");
}

} // namespace fexo
