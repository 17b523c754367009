#include <support/ChildProcess.hpp>
#include <support/Configuration.hpp>

#include <common/ConfigurationFile.hpp>

#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/Bundle.hpp>

#include <stdexcept>

namespace fexo::test {

void installConfiguration(const std::filesystem::path& directory, const ConfigurationValues& values)
{
    if (!tool::writeConfigurationFile(directory, {.baseURL = values.baseURL,
                                                  .clientSecret = values.clientSecret,
                                                  .clientId = values.clientId,
                                                  .appGroup = values.appGroup,
                                                  .bundleId = values.bundleId}))
        throw std::runtime_error("cannot write the configuration file");
    Bundle::main().setResourcesDirectory(directory);
    resetSharedConfigurationForTesting();
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
