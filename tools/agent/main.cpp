#include <agent/AgentCommands.hpp>
#include <common/CommandTree.hpp>
#include <common/ToolVersion.hpp>

#include <cstdlib>
#include <iostream>
#include <string_view>
#include <vector>

// Runs as `fexo-agent run|push …`, or as `fexo [--resources D] [--app-groups D] agent run|push …`
// when fexo hands its arguments over unchanged. Usage lines name the command as it was typed.
int main(int argc, char** argv)
{
    std::vector<char*> arguments(argv, argv + argc);
    bool throughFexo = false;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--resources" || argument == "--app-groups") {
            ++i;
            continue;
        }
        if (argument.starts_with('-')) continue;
        if (argument == "agent") {
            arguments.erase(arguments.begin() + static_cast<long>(i));
            throughFexo = true;
        }
        break;
    }

    CLI::App app("fexo-agent: takes pushes on the session bus, keeps them until they are shown, runs the "
                 "notification extension for each under time and memory limits, and shows what it delivers on "
                 "the desktop",
                 throughFexo ? "fexo agent" : "fexo-agent");
    app.require_subcommand(1);
    fexo::tool::addVersionFlag(app, "fexo-agent");
    // Every usage error is one line, with this executable's one prefix.
    app.failure_message(
        [](const CLI::App*, const CLI::Error& error) { return std::string("fexo-agent: ") + error.what() + "\n"; });
    // The extension processes inherit the environment, as they would from fexo.
    app.add_option("--resources", "Where FeXOService-Info.plist is (for the extension)")
        ->each([](const std::string& directory) { ::setenv("FEXO_RESOURCES_DIR", directory.c_str(), 1); });
    app.add_option("--app-groups", "Root of the app-group stores (for the extension)")
        ->each([](const std::string& directory) { ::setenv("FEXO_APP_GROUPS_DIR", directory.c_str(), 1); });
    int exitCode = 0;
    fexo::agent::addRunCommand(app, exitCode);
    fexo::agent::addPushCommand(app, exitCode);
    fexo::tool::addCommandTreeFlag(app);
    try {
        app.parse(static_cast<int>(arguments.size()), arguments.data());
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 1;
    }
    return exitCode;
}
