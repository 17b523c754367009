#include <FeXONotificationService/DataStorage.hpp>

#include <FeXOPlatform/StandardOutput.hpp>

namespace fexo {

DataStorage::~DataStorage() = default;

std::vector<Response> DataStorage::loadAll(std::string_view keyPrefix)
{
    std::vector<Response> records;
    for (const auto& key : userDefaults().keysWithPrefix(keyPrefix)) {
        if (auto record = load(key)) records.push_back(std::move(*record));
    }
    return records;
}

void DataStorage::save(const Response& response, std::string_view key)
{
    (void)saveChecked(response, key);
}

FeXOStoreError reportUnwrittenChange(const UserDefaults& store)
{
    FeXOStoreError error(FeXOStoreError::changeNotKept, store.databasePath(), store.lastWriteFailure());
    printErrorLine(error.localizedDescription());
    return error;
}

} // namespace fexo
