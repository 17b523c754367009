#include <FeXONotificationService/FeXOConfigurationCheck.hpp>

#include <FeXONotificationService/Endpoint.hpp>
#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/NSException.hpp>
#include <FeXOPlatform/URL.hpp>
#include <FeXOPlatform/UserDefaults.hpp>

#include <algorithm>
#include <cctype>
#include <optional>

namespace fexo {

namespace {

// What in the base URL would end a process that sends a request: the reason, or nothing.
std::optional<std::string> serverProblem(const FeXOConfigurationCheck& check)
{
    const auto colon = check.baseURL.find("://");
    std::string scheme = colon == std::string::npos ? std::string() : check.baseURL.substr(0, colon);
    std::transform(scheme.begin(), scheme.end(), scheme.begin(), [](unsigned char c) { return std::tolower(c); });
    if (!scheme.empty() && scheme != "http" && scheme != "https")
        return "FEXO_BASE_URL \"" + check.baseURL + "\" is not an http or https URL";
    for (const char* path : {Endpoint::notificationContentPath, Endpoint::registerNewDevicePath}) {
        const auto url = URL::fromString(check.baseURL + path);
        if (!url || (url->scheme() != "http" && url->scheme() != "https"))
            return "FEXO_BASE_URL \"" + check.baseURL + "\" does not form a URL with the path " + path;
    }
    return std::nullopt;
}

} // namespace

FeXOConfigurationCheck FeXOConfigurationCheck::run(unsigned parts)
{
    auto reading = readServiceConfiguration();
    FeXOConfigurationCheck check;
    check.resourcesDirectory = Bundle::main().resourcesDirectory();
    if (reading.exception != nullptr) {
        check.exceptionName = reading.exception->name();
        check.exceptionReason = reading.exception->reason();
        return check;
    }
    check.baseURL = std::move(reading.values.baseURL);
    check.clientSecret = std::move(reading.values.clientSecret);
    check.clientId = std::move(reading.values.clientId);
    check.appGroup = std::move(reading.values.appGroup);
    check.bundleId = std::move(reading.values.bundleId);
    if ((parts & server) != 0) {
        if (auto reason = serverProblem(check)) {
            check.exceptionReason = std::move(*reason);
            return check;
        }
    }
    if ((parts & store) != 0) {
        if (auto whyNot = UserDefaults::whyNotOpenable(check.appGroup)) {
            check.exceptionReason = "APP_GROUP: the app group's store cannot be opened or made: " + *whyNot;
            // A name that can never be a store is the configuration's mistake, not the store's.
            check.storeUnavailable = UserDefaults::containerPath(check.appGroup).has_value();
        }
    }
    return check;
}

std::string FeXOConfigurationCheck::searchNote() const
{
    // Only the file's exception has this name; a missing key names its key instead.
    if (exceptionName != "NSGenericException") return {};
    return " (FeXOService-Info.plist was looked for in " + resourcesDirectory.string() +
           "; set FEXO_RESOURCES_DIR to look elsewhere)";
}

std::string FeXOConfigurationCheck::problem() const
{
    if (exceptionName.empty()) return exceptionReason;
    return exceptionName + ": " + exceptionReason + searchNote();
}

FeXOConfigurationCheck FeXOConfigurationCheck::raised(const std::string& exceptionName,
                                                      const std::string& exceptionReason)
{
    FeXOConfigurationCheck check;
    check.exceptionName = exceptionName;
    check.exceptionReason = exceptionReason;
    check.resourcesDirectory = Bundle::main().resourcesDirectory();
    return check;
}

FeXOConfigurationCheck FeXOConfigurationCheck::loaded()
{
    const ServiceConfiguration& configuration = sharedConfiguration();
    FeXOConfigurationCheck check;
    check.baseURL = configuration.baseURL;
    check.clientSecret = configuration.clientSecret;
    check.clientId = configuration.clientId;
    check.appGroup = configuration.appGroup;
    check.bundleId = configuration.bundleId;
    check.resourcesDirectory = Bundle::main().resourcesDirectory();
    return check;
}

} // namespace fexo
