#include <FeXONotificationService/UserDefaultsDataStorage.hpp>

#include <FeXONotificationService/NotificationInbox.hpp>
#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/FatalError.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/StandardOutput.hpp>

#include <string>

namespace fexo {

namespace {

const std::string savePrefix = "APP save New ID NotificationService with error ";
const std::string loadPrefix = "APP load New ID NotificationService with error ";

} // namespace

Response UserDefaultsDataStorage::decodeRecord(std::string_view bytes)
{
    try {
        return JSONDecoder{}.decode<Response>(bytes);
    } catch (const DecodingError& error) {
        fatalError(loadPrefix + error.description());
    }
}

std::string UserDefaultsDataStorage::encodeRecord(const Response& response)
{
    try {
        return JSONEncoder{}.encode(response);
    } catch (const EncodingError& error) {
        fatalError(savePrefix + error.localizedDescription());
    }
}

UserDefaults& UserDefaultsDataStorage::userDefaults()
{
    // A configuration exception propagates and leaves the flag unset, so a later use tries again.
    std::call_once(opening_, [this] {
        const std::string& appGroup = sharedConfiguration().appGroup;
        std::string whyNot;
        userDefaults_ = UserDefaults::open(appGroup, whyNot);
        if (!userDefaults_) {
            // The cause first, on a line of its own; the fixed message stays the last words.
            printErrorLine(whyNot);
            fatalError("App Group Not Found " + appGroup);
        }
        // Once per store in practice: later opens find the index. A store that refuses it (read
        // only) still serves every other operation.
        NotificationInbox::recordIndex().ensure(*userDefaults_);
    });
    return *userDefaults_;
}

Result<void> UserDefaultsDataStorage::saveChecked(const Response& response, std::string_view key)
{
    const std::string bytes = encodeRecord(response);
    auto& store = userDefaults();
    if (!store.setData(bytes, key)) return Result<void>::failure(reportUnwrittenChange(store));
    return Result<void>::success();
}

std::optional<Response> UserDefaultsDataStorage::load(std::string_view key)
{
    const auto bytes = userDefaults().dataForKey(key);
    if (!bytes) return std::nullopt;
    return decodeRecord(*bytes);
}

std::vector<Response> UserDefaultsDataStorage::loadAll(std::string_view keyPrefix)
{
    std::vector<Response> records;
    auto entries = userDefaults().dataWithKeyPrefix(keyPrefix);
    records.reserve(entries.size());
    for (const auto& [key, bytes] : entries) records.push_back(decodeRecord(bytes));
    return records;
}

} // namespace fexo
