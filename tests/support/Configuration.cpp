#include <support/Configuration.hpp>

#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/Bundle.hpp>

#include <stdexcept>

namespace fexo::test {

PropertyListValue ConfigurationValues::toPropertyList() const
{
    return PropertyListValue(PropertyListValue::Dictionary{
        {"FEXO_BASE_URL", baseURL},
        {"CLIENT_SECRET", clientSecret},
        {"CLIENT_ID", clientId},
        {"APP_GROUP", appGroup},
        {"BUNDLE_ID", bundleId},
    });
}

void installConfiguration(const std::filesystem::path& directory, const ConfigurationValues& values,
                          PropertyList::Format format)
{
    if (!PropertyList::writeFile(values.toPropertyList(), directory / "FeXOService-Info.plist", format)) {
        throw std::runtime_error("cannot write the configuration file");
    }
    Bundle::main().setResourcesDirectory(directory);
    resetSharedConfigurationForTesting();
}

} // namespace fexo::test
