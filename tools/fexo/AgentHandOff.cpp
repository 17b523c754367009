#include <fexo/AgentHandOff.hpp>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string_view>

namespace fexo::tool {

bool choosesAgentCommand(int argc, const char* const* argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--") return false;
        if (argument == "--resources" || argument == "--app-groups") {
            ++i;
            continue;
        }
        if (argument.starts_with('-')) continue;
        return argument == "agent";
    }
    return false;
}

void handOverToAgent(char** argv)
{
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        std::cerr << "fexo: cannot find the directory of fexo to run " << agentExecutable << ": " << error.message()
                  << std::endl;
        return;
    }
    const auto sibling = (self.parent_path() / agentExecutable).string();
    std::cout.flush();
    ::execv(sibling.c_str(), argv);
    std::cerr << "fexo: cannot run " << sibling << ": " << std::strerror(errno) << std::endl;
}

void addAgentCommand(CLI::App& app, char** argv, int& exitCode)
{
    auto* command = app.add_subcommand(
        "agent", "The notification agent on the session bus: `agent run` serves it, `agent push [FILE|-]` hands "
                 "it a push and prints what it delivered");
    command->set_help_flag();
    command->prefix_command();
    command->callback([argv, &exitCode] {
        handOverToAgent(argv);
        exitCode = 1;
    });
}

} // namespace fexo::tool
