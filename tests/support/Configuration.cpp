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
    const std::string script = "import sys\nsys.path.insert(0, sys.argv[2])\n"
                               "from configuration_file import write_configuration_file\n"
                               "write_configuration_file(sys.argv[1], " +
                               dictionary + ", binary=" + (binary ? "True" : "False") + ")\n";
    const auto result =
        ChildProcess::run("/usr/bin/python3", {"-c", script, directory.string(), FEXO_TEST_SUPPORT_SOURCE_DIR});
    if (result.exitCode != 0)
        throw std::runtime_error("python3 could not write the configuration: " + result.standardError);
}

} // namespace fexo::test
