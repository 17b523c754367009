#include <FeXONotificationService/DataStorage.hpp>

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

} // namespace fexo
