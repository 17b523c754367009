#include <FeXONotificationService/FeXOConfigurationCheck.hpp>

#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/PropertyList.hpp>

#include <array>
#include <optional>

namespace fexo {

namespace {

constexpr const char* fileName = "FeXOService-Info.plist";

FeXOConfigurationCheck failure(std::string name, std::string reason)
{
    FeXOConfigurationCheck check;
    check.exceptionName = std::move(name);
    check.exceptionReason = std::move(reason);
    return check;
}

} // namespace

FeXOConfigurationCheck FeXOConfigurationCheck::run()
{
    const auto path = Bundle::main().pathForResource("FeXOService-Info", "plist");
    const auto root = path ? PropertyList::readFile(*path) : std::nullopt;
    const auto* dictionary = root ? root->dictionary() : nullptr;
    if (dictionary == nullptr) {
        return failure("NSGenericException",
                       std::string(" FeXO notifications framework could not find a valid ") + fileName + " in your project.");
    }
    const std::array<std::pair<const char*, std::string FeXOConfigurationCheck::*>, 5> keys{{
        {"FEXO_BASE_URL", &FeXOConfigurationCheck::baseURL},
        {"CLIENT_SECRET", &FeXOConfigurationCheck::clientSecret},
        {"CLIENT_ID", &FeXOConfigurationCheck::clientId},
        {"APP_GROUP", &FeXOConfigurationCheck::appGroup},
        {"BUNDLE_ID", &FeXOConfigurationCheck::bundleId},
    }};
    FeXOConfigurationCheck check;
    for (const auto& [key, field] : keys) {
        const auto found = dictionary->find(key);
        const std::string* value = found == dictionary->end() ? nullptr : found->second.string();
        if (value == nullptr || value->empty()) {
            return failure("NSObjectNotAvailableException", std::string(key) + " is not found in " + fileName);
        }
        check.*field = *value;
    }
    return check;
}

} // namespace fexo
