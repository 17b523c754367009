#include <FeXONotificationService/DataStorage.hpp>

#include <unistd.h>

#include <cerrno>

#include <string>

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
    const std::string line = error.localizedDescription() + "\n";
    // One write, so that lines of several threads or processes never interleave.
    while (::write(STDERR_FILENO, line.data(), line.size()) < 0 && errno == EINTR) { }
    return error;
}

} // namespace fexo
