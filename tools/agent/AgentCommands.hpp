#pragma once

#include <CLI/CLI.hpp>

namespace fexo::agent {

// `run`: serves org.fexo.NotificationAgent1 on the session bus until SIGTERM or SIGINT.
// `push [FILE|-]`: hands one push to the agent (starting it by activation when needed), waits
// for its Delivered signal and prints the content as `fexo handle-push` does (exit 0 rewritten,
// 3 original, 1 refused or failed, with one line on standard error).
// Each callback stores its command's exit status in `exitCode`.
void addRunCommand(CLI::App& app, int& exitCode);
void addPushCommand(CLI::App& app, int& exitCode);

} // namespace fexo::agent
