#include <FeXONotificationService/FeXOConfigurationCheck.hpp>

#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/NSException.hpp>

namespace fexo {

FeXOConfigurationCheck FeXOConfigurationCheck::run()
{
    auto reading = readServiceConfiguration();
    FeXOConfigurationCheck check;
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
    return check;
}

} // namespace fexo
