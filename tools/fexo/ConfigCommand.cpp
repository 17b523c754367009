#include <fexo/Commands.hpp>
#include <fexo/SecretMask.hpp>

#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/NSException.hpp>

#include <iostream>

namespace fexo::tool {

namespace {

int checkConfiguration(const ToolOptions& options)
{
    options.apply();
    try {
        const ServiceConfiguration& configuration = sharedConfiguration();
        std::cout << "FEXO_BASE_URL=" << configuration.baseURL << '\n'
                  << "CLIENT_SECRET=" << maskedSecret(configuration.clientSecret) << '\n'
                  << "CLIENT_ID=" << configuration.clientId << '\n'
                  << "APP_GROUP=" << configuration.appGroup << '\n'
                  << "BUNDLE_ID=" << configuration.bundleId << std::endl;
        return 0;
    } catch (const NSException& exception) {
        std::cerr << "fexo: " << exception.name() << ": " << exception.reason() << std::endl;
        return 1;
    }
}

} // namespace

void addConfigCommand(CLI::App& app, const ToolOptions& options, int& exitCode)
{
    auto* config = app.add_subcommand("config", "Inspect the service configuration");
    config->require_subcommand(1);
    auto* check = config->add_subcommand(
        "check", "Load FeXOService-Info.plist as the library does and print its five settings");
    check->callback([&options, &exitCode] { exitCode = checkConfiguration(options); });
}

} // namespace fexo::tool
