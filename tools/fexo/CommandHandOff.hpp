#pragma once

#include <common/HandedOverCommands.hpp>

#include <CLI/CLI.hpp>

#include <string_view>

namespace fexo::tool {

// The command name that `argv` chooses: the first argument that is neither an option nor the
// value of --resources or --app-groups (a help flag before the command name asks for that
// command's help). Empty when there is none before "--". Points into `argv`.
std::string_view chosenCommandName(int argc, const char* const* argv);

// The handed-over command that `argv` chooses (chosenCommandName), or null; its executable gives
// its help too.
const HandedOverCommand* chosenHandedOverCommand(int argc, const char* const* argv);

// Adds the handed-over commands to fexo's command line so that its help lists them. Choosing one
// hands the process over (handOver) with `argv` exactly as given: everything after the command
// name, `--help` included, is left for the sibling to parse. `argv` must outlive the parse. When
// the hand-over fails, `exitCode` is set to 1.
void addHandedOverCommands(CLI::App& app, char** argv, int& exitCode);

// Replaces this process with the command's executable from the directory of /proc/self/exe,
// passing `argv` unchanged (argv[0] too, so that usage lines keep naming fexo). Returns only when
// that fails, after printing one line to standard error.
void handOver(const HandedOverCommand& command, char** argv);

} // namespace fexo::tool
