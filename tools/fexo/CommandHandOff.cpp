#include <fexo/CommandHandOff.hpp>

#include <common/TerminalText.hpp>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string_view>

namespace fexo::tool {

std::string_view chosenCommandName(int argc, const char* const* argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--") return {};
        if (argument == "--resources" || argument == "--app-groups") {
            ++i;
            continue;
        }
        if (argument.starts_with('-')) continue;
        return argument;
    }
    return {};
}

const HandedOverCommand* chosenHandedOverCommand(int argc, const char* const* argv)
{
    const std::string_view chosen = chosenCommandName(argc, argv);
    for (const auto& command : handedOverCommands) {
        if (!chosen.empty() && command.name == chosen) return &command;
    }
    return nullptr;
}

void handOver(const HandedOverCommand& command, char** argv)
{
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        reportProblem(std::string("cannot find the directory of fexo to run ") + command.executable + ": " +
                      error.message());
        return;
    }
    const auto sibling = (self.parent_path() / command.executable).string();
    std::cout.flush();
    ::execv(sibling.c_str(), argv);
    reportProblem("cannot run " + sibling + ": " + std::strerror(errno));
}

void addHandedOverCommands(CLI::App& app, char** argv, int& exitCode)
{
    for (const auto& handedOver : handedOverCommands) {
        auto* command = app.add_subcommand(std::string(handedOver.name), handedOver.description);
        // Options and help belong to the sibling: none is parsed here.
        command->set_help_flag();
        command->prefix_command();
        command->callback([&handedOver, argv, &exitCode] {
            handOver(handedOver, argv);
            exitCode = 1;
        });
    }
}

} // namespace fexo::tool
