#include <agent/AgentCommands.hpp>
#include <agent/MemoryCgroup.hpp>
#include <agent/NotificationAgent.hpp>

#include <sdbus-c++/sdbus-c++.h>

#include <signal.h>

#include <filesystem>
#include <iostream>
#include <sstream>

namespace fexo::agent {

namespace {

struct RunOptions {
    std::string extension; // program and arguments, separated by blanks
    double timeLimitSeconds = 30;
    double memoryLimitMiB = 24;
    AgentSettings settings;
};

// `fexo handle-push`, from the directory of this executable (where fexo is installed beside it).
std::string defaultExtension()
{
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    return (error ? std::filesystem::path("fexo") : self.parent_path() / "fexo").string() + " handle-push";
}

std::vector<std::string> words(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string word; stream >> word;) result.push_back(word);
    return result;
}

int serve(const RunOptions& options)
{
    sigset_t stop;
    ::sigemptyset(&stop);
    ::sigaddset(&stop, SIGTERM);
    ::sigaddset(&stop, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &stop, nullptr); // before any thread starts: run() takes them
    ::signal(SIGPIPE, SIG_IGN);                   // an extension that ends before reading its input

    std::unique_ptr<sdbus::IConnection> connection;
    try {
        connection = sdbus::createSessionBusConnection();
    } catch (const sdbus::Error& error) {
        std::cerr << "fexo-agent: no session bus: " << error.getMessage() << std::endl;
        return 1;
    }
    const auto command = words(options.extension.empty() ? defaultExtension() : options.extension);
    ExtensionLimits limits;
    limits.time = std::chrono::milliseconds(static_cast<long long>(options.timeLimitSeconds * 1000));
    limits.memoryBytes = static_cast<std::size_t>(options.memoryLimitMiB * 1024 * 1024);
    std::string noCgroup;
    auto cgroup = MemoryCgroup::delegated(noCgroup);
    const ExtensionRunner runner(command, limits, std::move(cgroup));
    try {
        NotificationAgent agent(std::move(connection), runner, options.settings);
        std::cerr << "fexo-agent: serving " << agentBusName << "; extension: " << options.extension
                  << (options.extension.empty() ? defaultExtension() : "") << "; limits: " << options.timeLimitSeconds
                  << " s, " << options.memoryLimitMiB << " MiB by " << runner.memoryEnforcement()
                  << (noCgroup.empty() ? "" : " (" + noCgroup + ")") << "; " << options.settings.concurrency
                  << " at once, " << options.settings.queueCapacity << " waiting at most" << std::endl;
        return agent.run();
    } catch (const sdbus::Error& error) {
        std::cerr << "fexo-agent: cannot serve " << agentBusName << ": " << error.getMessage() << std::endl;
        return 1;
    }
}

} // namespace

void addRunCommand(CLI::App& app, int& exitCode)
{
    auto options = std::make_shared<RunOptions>();
    auto* command = app.add_subcommand("run", "Serve org.fexo.NotificationAgent1 on the session bus: run the "
                                              "extension for each push and show what it delivers");
    command->add_option("--extension", options->extension,
                        "The extension program and its arguments, separated by blanks; it reads the push's "
                        "JSON on standard input and prints the content as its last line (default: fexo handle-push)");
    command->add_option("--time-limit", options->timeLimitSeconds, "Seconds an extension may run")
        ->capture_default_str()
        ->check(CLI::Range(0.001, 86400.0));
    command->add_option("--memory-limit", options->memoryLimitMiB, "MiB of resident memory an extension may use")
        ->capture_default_str()
        ->check(CLI::Range(1.0, 1048576.0));
    command->add_option("--concurrency", options->settings.concurrency, "Extension processes at once")
        ->capture_default_str()
        ->check(CLI::Range(1, 1024));
    command->add_option("--queue", options->settings.queueCapacity, "Pushes that may wait for an extension")
        ->capture_default_str()
        ->check(CLI::Range(0, 1000000));
    command->add_option("--app-name", options->settings.appName, "Application name of the notifications")
        ->capture_default_str();
    command->add_option("--host-command", options->settings.hostCommand,
                        "Shell command run when a notification's default action is chosen "
                        "(FEXO_REQUEST_ID holds the push's request id)");
    command->callback([options, &exitCode] { exitCode = serve(*options); });
}

} // namespace fexo::agent
