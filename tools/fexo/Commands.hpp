#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <optional>
#include <string>

namespace fexo::tool {

// Settings shared by every command, given before the command name (or after it).
struct ToolOptions {
    std::optional<std::filesystem::path> resources; // --resources: where FeXOService-Info.plist is
    std::optional<std::filesystem::path> appGroups; // --app-groups: root of the app-group stores
    // Puts the options into effect (environment and bundle) before a command runs.
    void apply() const;
};

// Sets up fexo's top level in `app`: its description, one command required, and the options of
// ToolOptions (given before or after the command). fexo and fexo-devserver share it, so that a
// command handed over parses and explains itself exactly as it would in fexo.
void addToolOptions(CLI::App& app, ToolOptions& options);

// Parses the arguments, which runs the chosen command, and gives the process's exit status:
// the command's `exitCode`, 0 for --help, 1 for a usage error (explained on standard error).
int parseAndRun(CLI::App& app, int argc, char** argv, const int& exitCode);

// Each command adds its subcommand to `app`; the callback it installs stores the command's
// exit status in `exitCode`. A command that reports a failure prints to standard error.
void addConfigCommand(CLI::App& app, const ToolOptions& options, int& exitCode);
void addRegisterCommand(CLI::App& app, const ToolOptions& options, int& exitCode);
void addHandlePushCommand(CLI::App& app, const ToolOptions& options, int& exitCode);
void addStoreCommands(CLI::App& app, const ToolOptions& options, int& exitCode);
void addStoreMaintenanceCommand(CLI::App& app, const ToolOptions& options, int& exitCode);

} // namespace fexo::tool
