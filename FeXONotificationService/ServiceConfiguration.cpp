#include <FeXONotificationService/ServiceConfiguration.hpp>

#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/NSException.hpp>
#include <FeXOPlatform/PropertyList.hpp>

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace fexo {

namespace {

constexpr const char* resourceName = "FeXOService-Info";
constexpr const char* resourceType = "plist";
constexpr const char* fileName = "FeXOService-Info.plist";

// Each exception object is built on first need and kept for the life of the process, so a
// condition raised again raises the same object.
const NSException& fileException()
{
    static const NSException* exception =
        new NSException("NSGenericException", std::string(" FeXO notifications framework could not find a valid ") +
                                                  fileName + " in your project.");
    return *exception;
}

template <std::size_t I>
const NSException& keyException(const char* key)
{
    static const NSException* exception =
        new NSException("NSObjectNotAvailableException", std::string(key) + " is not found in " + fileName);
    return *exception;
}

struct KeyCheck {
    const char* key;
    std::string ServiceConfiguration::*field;
    const NSException& (*exception)(const char*);
};

// Strict order: the first failing key decides the message.
const std::array<KeyCheck, 5> keyChecks{{
    {"FEXO_BASE_URL", &ServiceConfiguration::baseURL, &keyException<0>},
    {"CLIENT_SECRET", &ServiceConfiguration::clientSecret, &keyException<1>},
    {"CLIENT_ID", &ServiceConfiguration::clientId, &keyException<2>},
    {"APP_GROUP", &ServiceConfiguration::appGroup, &keyException<3>},
    {"BUNDLE_ID", &ServiceConfiguration::bundleId, &keyException<4>},
}};

// Raises; when the raise hook returns, the load ends with the empty record.
ServiceConfiguration load()
{
    auto reading = readServiceConfiguration();
    if (reading.exception != nullptr) {
        reading.exception->raise();
        return {};
    }
    return std::move(reading.values);
}

std::mutex& loadMutex()
{
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

std::atomic<const ServiceConfiguration*> loaded{nullptr};
// Records replaced by resetSharedConfigurationForTesting stay alive: callers may hold references.
std::vector<std::unique_ptr<const ServiceConfiguration>>* retired = nullptr;

} // namespace

ServiceConfigurationReading readServiceConfiguration()
{
    const auto path = Bundle::main().pathForResource(resourceName, resourceType);
    const auto root = path ? PropertyList::readFile(*path, maximumConfigurationFileSize) : std::nullopt;
    const auto* dictionary = root ? root->dictionary() : nullptr;
    if (dictionary == nullptr) return {{}, &fileException()};
    ServiceConfigurationReading reading;
    for (const auto& check : keyChecks) {
        const auto it = dictionary->find(check.key);
        const std::string* value = it == dictionary->end() ? nullptr : it->second.string();
        if (value == nullptr || value->empty()) return {{}, &check.exception(check.key)};
        reading.values.*check.field = *value;
    }
    return reading;
}

const ServiceConfiguration& sharedConfiguration()
{
    if (const auto* configuration = loaded.load(std::memory_order_acquire)) return *configuration;
    std::lock_guard lock(loadMutex());
    if (const auto* configuration = loaded.load(std::memory_order_relaxed)) return *configuration;
    const auto* configuration = new ServiceConfiguration(load());
    loaded.store(configuration, std::memory_order_release);
    return *configuration;
}

void resetSharedConfigurationForTesting()
{
    std::lock_guard lock(loadMutex());
    if (const auto* configuration = loaded.exchange(nullptr)) {
        if (retired == nullptr) retired = new std::vector<std::unique_ptr<const ServiceConfiguration>>();
        retired->emplace_back(configuration);
    }
}

} // namespace fexo
