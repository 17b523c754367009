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

// Sets up the top level in `app`: its description ("<toolName()>: " and `description`; usage
// lines take the name the executable was run by), one command required, and the options of ToolOptions (given before or after
// the command). fexo and fexo-devserver both use it, so that a command handed over parses and
// explains itself exactly as it would in fexo.
void addToolOptions(CLI::App& app, ToolOptions& options, const std::string& description);

// Parses the arguments, which runs the chosen command, and gives the process's exit status
// (usage lines name the program by the base name of argv[0]):
// the command's `exitCode`, 0 for --help, 1 for a usage error or an exception the library
// raised (either explained in one line on standard error).
int parseAndRun(CLI::App& app, int argc, char** argv, const int& exitCode);

} // namespace fexo::tool
