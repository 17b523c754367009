#include <agent/AgentCommands.hpp>
#include <agent/MemoryCgroup.hpp>
#include <agent/NotificationAgent.hpp>
#include <agent/QueueDatabase.hpp>
#include <agent/RunOptions.hpp>
#include <agent/StateDirectory.hpp>

#include <sdbus-c++/sdbus-c++.h>

#include <signal.h>

#include <iostream>

namespace fexo::agent {

namespace {

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const auto& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

int serve(const RunOptions& options)
{
    // Checked here as well as while parsing: the default extension is looked up only now.
    const auto command = options.extensionCommand();
    std::string reason;
    if (!executableProgram(command.front(), reason)) {
        std::cerr << "fexo-agent: " << reason << std::endl;
        return 1;
    }

    sigset_t stop;
    ::sigemptyset(&stop);
    ::sigaddset(&stop, SIGTERM);
    ::sigaddset(&stop, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &stop, nullptr); // before any thread starts: run() takes them
    ::signal(SIGPIPE, SIG_IGN);                   // an extension that ends before reading its input

    // One agent per user: the lock on the state folder says so before anything else is touched.
    std::unique_ptr<StateDirectory> state;
    if (const auto location = StateDirectory::location()) {
        state = std::make_unique<StateDirectory>(*location);
        if (!state->prepare(reason) || !state->lock(reason)) {
            std::cerr << "fexo-agent: " << reason << std::endl;
            if (state->heldElsewhere()) return 1;
            state.reset(); // no folder of its own: the queue lives in memory
        }
    }
    const auto queue = QueueDatabase::open(state ? state->path() : std::filesystem::path());

    std::unique_ptr<sdbus::IConnection> connection;
    try {
        connection = sdbus::createSessionBusConnection();
    } catch (const sdbus::Error& error) {
        std::cerr << "fexo-agent: no session bus: " << error.getMessage() << std::endl;
        return 1;
    }
    ExtensionLimits limits;
    limits.time = options.timeLimit();
    limits.memoryBytes = options.memoryLimitBytes();
    std::string noCgroup;
    auto cgroup = MemoryCgroup::delegated(noCgroup);
    const ExtensionRunner runner(command, limits, std::move(cgroup));
    AgentSettings settings;
    settings.concurrency = options.concurrency;
    settings.queueCapacity = options.queueCapacity;
    settings.appName = options.appName;
    settings.icon = options.icon;
    settings.hostCommand = options.hostCommand;
    settings.desktopEntry = options.desktopEntry;
    try {
        NotificationAgent agent(std::move(connection), runner, *queue, settings);
        std::cerr << "fexo-agent: serving " << agentBusName << "; extension: " << joined(command)
                  << "; limits: " << options.timeLimitSeconds << " s, " << options.memoryLimitMiB << " MiB by "
                  << runner.memoryEnforcement() << (noCgroup.empty() ? "" : " (" + noCgroup + ")") << "; "
                  << options.concurrency << " at once, " << options.queueCapacity << " waiting at most; queue "
                  << (queue->durable() ? queue->path() : "in memory") << std::endl;
        return agent.run();
    } catch (const NameTaken& taken) {
        std::cerr << "fexo-agent: " << taken.what() << std::endl;
        return 1;
    } catch (const sdbus::Error& error) {
        std::cerr << "fexo-agent: cannot serve " << agentBusName << ": " << error.getMessage() << std::endl;
        return 1;
    }
}

} // namespace

void addRunCommand(CLI::App& app, int& exitCode)
{
    auto options = std::make_shared<RunOptions>();
    auto* command = app.add_subcommand("run", "Serve org.fexo.NotificationAgent1 on the session bus: keep each "
                                              "push, run the extension for it and show what it delivers");
    addRunOptions(*command, *options);
    command->callback([options, &exitCode] { exitCode = serve(*options); });
}

} // namespace fexo::agent
