#include <fexo/DevelopmentServerHandOff.hpp>

#include <common/HandedOverCommands.hpp>
#include <common/TerminalText.hpp>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string_view>

namespace fexo::tool {

bool choosesDevelopmentServerCommand(int argc, const char* const* argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--") return false;
        if (argument == "--resources" || argument == "--app-groups") {
            ++i;
            continue;
        }
        if (argument.starts_with('-')) continue;
        return std::any_of(handedOverCommands.begin(), handedOverCommands.end(),
                           [&](const HandedOverCommand& command) { return command.name == argument; });
    }
    return false;
}

void handOverToDevelopmentServer(char** argv)
{
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        reportProblem(std::string("cannot find the directory of fexo to run ") + developmentServerExecutable + ": " +
                      error.message());
        return;
    }
    const auto sibling = (self.parent_path() / developmentServerExecutable).string();
    std::cout.flush();
    ::execv(sibling.c_str(), argv);
    reportProblem("cannot run " + sibling + ": " + std::strerror(errno));
}

void addDevelopmentServerCommands(CLI::App& app, char** argv, int& exitCode)
{
    for (const auto& handedOver : handedOverCommands) {
        auto* command = app.add_subcommand(std::string(handedOver.name), handedOver.description);
        // Options and help belong to fexo-devserver: none is parsed here.
        command->set_help_flag();
        command->prefix_command();
        command->callback([argv, &exitCode] {
            handOverToDevelopmentServer(argv);
            exitCode = 1;
        });
    }
}

} // namespace fexo::tool
