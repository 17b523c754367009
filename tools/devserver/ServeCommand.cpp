#include <devserver/DevelopmentServerCommands.hpp>

#include <common/HandedOverCommands.hpp>
#include <common/LoopbackHost.hpp>
#include <common/TerminalText.hpp>
#include <devserver/DevelopmentServer.hpp>

#include <FeXONotificationService/FeXOConfigurationCheck.hpp>

#include <csignal>
#include <iostream>
#include <pthread.h>

namespace fexo::tool {

namespace {

// The client secret of the README's tour and the example configuration: public knowledge.
constexpr const char* documentedSecret = "dev-client-secret-change-me";

struct ServeArguments {
    std::string host = "127.0.0.1";
    int port = 8080;
    std::optional<std::filesystem::path> data;
    std::optional<std::string> clientId;
    std::optional<std::string> clientSecret;
};

// The credentials the server accepts: the configuration's, each replaced by its flag when
// given. Without a loadable configuration both flags are needed.
std::optional<std::pair<std::string, std::string>> credentials(const ServeArguments& arguments)
{
    if (arguments.clientId && arguments.clientSecret) return std::pair(*arguments.clientId, *arguments.clientSecret);
    // The file and its keys only: the server needs no store and no base URL of its own.
    const FeXOConfigurationCheck configuration = FeXOConfigurationCheck::run(0);
    if (configuration.isValid()) {
        return std::pair(arguments.clientId.value_or(configuration.clientId),
                         arguments.clientSecret.value_or(configuration.clientSecret));
    }
    reportProblem(configuration.problem());
    reportProblem("give --client-id and --client-secret to serve without a configuration");
    return std::nullopt;
}

int serve(const ToolOptions& options, const ServeArguments& arguments)
{
    options.apply();
    const auto accepted = credentials(arguments);
    if (!accepted) return 1;
    if (!isLoopbackHost(arguments.host) && accepted->second == documentedSecret) {
        reportProblem("warning: serving on " + arguments.host +
                      ", reachable from other machines, with the secret the README shows (" + documentedSecret +
                      "): anyone who read it can use this server; give --client-secret");
    }

    // SIGINT and SIGTERM are blocked before any thread starts, so every server thread inherits
    // the mask and the signal can only be taken by sigwait below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);

    DevelopmentServerOptions serverOptions;
    serverOptions.host = arguments.host;
    serverOptions.port = arguments.port;
    serverOptions.dataDirectory = arguments.data;
    serverOptions.clientId = accepted->first;
    serverOptions.clientSecret = accepted->second;
    serverOptions.exchangeObserver = [](const Exchange& exchange) {
        // The path is the client's text: escaped like every line meant for a terminal.
        std::cerr << terminalText(exchange.method + " " + exchange.path + " -> " + std::to_string(exchange.status)) +
                         "\n"
                  << std::flush;
    };
    DevelopmentServer server(std::move(serverOptions));
    try {
        server.start();
    } catch (const std::exception& error) {
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        reportProblem(error.what());
        return 1;
    }
    writeTerminalLine(std::cout, server.baseURL());

    int signal = 0;
    sigwait(&stopSignals, &signal);
    server.stop();
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return 0;
}

} // namespace

void addServeCommand(CLI::App& app, const ToolOptions& options, int& exitCode)
{
    auto arguments = std::make_shared<ServeArguments>();
    auto* command = app.add_subcommand("serve", handedOverDescription("serve"));
    command->add_option("--host", arguments->host, "Address to listen on")->capture_default_str();
    command->add_option("--port", arguments->port, "Port to listen on, 0 for any free port")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    command->add_option("--data", arguments->data, "Directory for the server's database (default: kept in memory)");
    command->add_option("--client-id", arguments->clientId,
                        "Accepted client id (default: CLIENT_ID of the configuration)");
    command->add_option("--client-secret", arguments->clientSecret,
                        "Accepted client secret (default: CLIENT_SECRET of the configuration)");
    command->callback([&options, &exitCode, arguments] { exitCode = serve(options, *arguments); });
}

} // namespace fexo::tool
