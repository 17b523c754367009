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

void reportUnwrittenChange(const UserDefaults& store)
{
    const std::string line = "The app group store \"" + store.databasePath().string() + "\" could not be written (" +
                             store.lastWriteFailure() + "); the change was not kept.\n";
    // One write, so that lines of several threads or processes never interleave.
    while (::write(STDERR_FILENO, line.data(), line.size()) < 0 && errno == EINTR) { }
}

} // namespace fexo
