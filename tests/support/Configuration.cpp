#include <support/ChildProcess.hpp>
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

void installConfiguration(const std::filesystem::path& directory, const std::string& baseURL)
{
    ConfigurationValues values;
    values.baseURL = baseURL;
    installConfiguration(directory, values);
}

void writeConfigurationWithPython(const std::filesystem::path& directory, const std::string& dictionary, bool binary)
{
    const std::string script = "import plistlib,sys\nplistlib.dump(" + dictionary +
                               ", open(sys.argv[1], 'wb'), fmt=plistlib." + (binary ? "FMT_BINARY" : "FMT_XML") + ")\n";
    const auto result =
        ChildProcess::run("/usr/bin/python3", {"-c", script, (directory / "FeXOService-Info.plist").string()});
    if (result.exitCode != 0)
        throw std::runtime_error("python3 could not write the configuration: " + result.standardError);
}

} // namespace fexo::test
