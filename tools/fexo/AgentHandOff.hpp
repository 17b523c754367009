#pragma once

#include <CLI/CLI.hpp>

namespace fexo::tool {

// `agent` lives in the sibling executable fexo-agent (it links the bus library, which the
// extension's road does not need).
inline constexpr const char* agentExecutable = "fexo-agent";

// Whether the command that `argv` chooses is `agent` (the first argument that is neither an
// option nor the value of --resources or --app-groups).
bool choosesAgentCommand(int argc, const char* const* argv);

// Adds `agent` to fexo's command line so that its help lists it; choosing it hands the process
// over (handOverToAgent). When the hand-over fails, `exitCode` is set to 1.
void addAgentCommand(CLI::App& app, char** argv, int& exitCode);

// Replaces this process with fexo-agent from the directory of /proc/self/exe, passing `argv`
// unchanged. Returns only when that fails, after printing one line to standard error.
void handOverToAgent(char** argv);

} // namespace fexo::tool
