#pragma once

#include <common/ToolOptions.hpp>

namespace fexo::tool {

// The commands of fexo-devserver, reached through fexo's hand-over. Each adds its subcommand to
// `app`; the callback it installs stores the command's exit status in `exitCode`.
void addServeCommand(CLI::App& app, const ToolOptions& options, int& exitCode);
void addDemoCommand(CLI::App& app, const ToolOptions& options, int& exitCode);

} // namespace fexo::tool
