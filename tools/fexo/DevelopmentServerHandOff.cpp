#include <fexo/DevelopmentServerHandOff.hpp>

#include <unistd.h>

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
        return argument == "serve" || argument == "demo";
    }
    return false;
}

void handOverToDevelopmentServer(char** argv)
{
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        std::cerr << "fexo: cannot find the directory of fexo to run " << developmentServerExecutable << ": "
                  << error.message() << std::endl;
        return;
    }
    const auto sibling = (self.parent_path() / developmentServerExecutable).string();
    std::cout.flush();
    ::execv(sibling.c_str(), argv);
    std::cerr << "fexo: cannot run " << sibling << ": " << std::strerror(errno) << std::endl;
}

void addDevelopmentServerCommands(CLI::App& app, char** argv, int& exitCode)
{
    for (const char* name : {"serve", "demo"}) {
        auto* command = app.add_subcommand(name, name == std::string_view("serve") ? serveDescription : demoDescription);
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
