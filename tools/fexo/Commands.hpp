#pragma once

#include <common/ToolOptions.hpp>

namespace fexo::tool {

// Each command adds its subcommand to `app`; the callback it installs stores the command's
// exit status in `exitCode`. A command that reports a failure prints one line to standard error.
void addConfigCommand(CLI::App& app, const ToolOptions& options, int& exitCode);
void addRegisterCommand(CLI::App& app, const ToolOptions& options, int& exitCode);
void addHandlePushCommand(CLI::App& app, const ToolOptions& options, int& exitCode);
void addStoreCommands(CLI::App& app, const ToolOptions& options, int& exitCode);
void addInboxCommands(CLI::App& app, const ToolOptions& options, int& exitCode);
void addStoreMaintenanceCommand(CLI::App& app, const ToolOptions& options, int& exitCode);

} // namespace fexo::tool
