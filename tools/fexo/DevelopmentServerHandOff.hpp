#pragma once

#include <CLI/CLI.hpp>

namespace fexo::tool {

// Whether the command that `argv` chooses is one that fexo-devserver runs (serve, demo): the
// first argument that is neither an option nor the value of --resources or --app-groups (a help
// flag before the command name asks for that command's help, which fexo-devserver gives).
bool choosesDevelopmentServerCommand(int argc, const char* const* argv);

// Adds the handed-over commands to fexo's command line so that its help lists them. Choosing one
// hands the process over (handOverToDevelopmentServer) with `argv` exactly as given: everything
// after the command name, `--help` included, is left for fexo-devserver to parse. `argv` must
// outlive the parse. When the hand-over fails, `exitCode` is set to 1.
void addDevelopmentServerCommands(CLI::App& app, char** argv, int& exitCode);

// Replaces this process with fexo-devserver from the directory of /proc/self/exe, passing `argv`
// unchanged (argv[0] too, so that usage lines keep naming fexo). Returns only when that fails,
// after printing one line to standard error.
void handOverToDevelopmentServer(char** argv);

} // namespace fexo::tool
