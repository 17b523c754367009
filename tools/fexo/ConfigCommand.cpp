#include <fexo/Commands.hpp>

#include <common/LoopbackHost.hpp>
#include <common/SecretMask.hpp>
#include <common/TerminalText.hpp>

#include <FeXONotificationService/FeXOConfigurationCheck.hpp>
#include <FeXOPlatform/URL.hpp>

#include <iostream>

namespace fexo::tool {

namespace {

int checkConfiguration(const ToolOptions& options)
{
    options.apply();
    const FeXOConfigurationCheck check = FeXOConfigurationCheck::run();
    if (!check.isValid()) {
        reportProblem(check.problem());
        return 1;
    }
    writeTerminalLine(std::cout, "FEXO_BASE_URL=" + check.baseURL);
    writeTerminalLine(std::cout, "CLIENT_SECRET=" + maskedSecret(check.clientSecret));
    writeTerminalLine(std::cout, "CLIENT_ID=" + check.clientId);
    writeTerminalLine(std::cout, "APP_GROUP=" + check.appGroup);
    writeTerminalLine(std::cout, "BUNDLE_ID=" + check.bundleId);
    const auto url = URL::fromString(check.baseURL);
    if (url && url->scheme() == "http" && !isLoopbackHost(url->host())) {
        reportProblem("warning: FEXO_BASE_URL is plain http:// to " + url->host() +
                      ", which is not a loopback address: the client secret would travel in clear");
    }
    return 0;
}

} // namespace

void addConfigCommand(CLI::App& app, const ToolOptions& options, int& exitCode)
{
    auto* config = app.add_subcommand("config", "Inspect the service configuration");
    config->require_subcommand(1);
    auto* check = config->add_subcommand(
        "check", "Load FeXOService-Info.plist as the library does, check what would end a process later (a base "
                 "URL that is no http(s) URL, an unusable app group, a store that cannot be opened or made) without "
                 "creating anything, and print its five settings; warn when the base URL is plain http to a host "
                 "other than this machine");
    check->callback([&options, &exitCode] { exitCode = checkConfiguration(options); });
}

} // namespace fexo::tool
