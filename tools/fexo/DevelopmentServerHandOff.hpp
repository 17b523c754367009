#pragma once

#include <CLI/CLI.hpp>

namespace fexo::tool {

// `serve` and `demo` carry an HTTP server, so they live in the sibling executable fexo-devserver;
// fexo itself links none of it and starts as fast as the extension's road needs.
inline constexpr const char* developmentServerExecutable = "fexo-devserver";

inline constexpr const char* serveDescription =
    "Run a development server that stands in for the FeXO service on this machine; "
    "prints its base URL, serves until SIGINT or SIGTERM";
inline constexpr const char* demoDescription =
    "Run the whole system in a temporary directory: development server, registration, a push "
    "handled by the extension, the stored record listed, marked read, and logout";

// Whether the command that `argv` chooses is `serve` or `demo`: the first argument that is neither
// an option nor the value of --resources or --app-groups (a help flag before the command name
// asks for that command's help, which fexo-devserver gives).
bool choosesDevelopmentServerCommand(int argc, const char* const* argv);

// Adds `serve` and `demo` to fexo's command line so that its help lists them. Choosing either
// hands the process over (handOverToDevelopmentServer) with `argv` exactly as given: everything
// after the command name, `--help` included, is left for fexo-devserver to parse. `argv` must
// outlive the parse. When the hand-over fails, `exitCode` is set to 1.
void addDevelopmentServerCommands(CLI::App& app, char** argv, int& exitCode);

// Replaces this process with fexo-devserver from the directory of /proc/self/exe, passing `argv`
// unchanged (argv[0] too, so that usage lines keep naming fexo). Returns only when that fails,
// after printing one line to standard error.
void handOverToDevelopmentServer(char** argv);

} // namespace fexo::tool
