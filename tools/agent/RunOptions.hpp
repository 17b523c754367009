#pragma once

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace fexo::agent {

// What `run` is told on its command line. Every value is checked while parsing, so that a wrong
// one ends the command with one line before the bus or the disk is touched.
struct RunOptions {
    std::string extension;            // program and arguments, separated by blanks; empty: fexo handle-push
    double timeLimitSeconds = 30;     // finite, above 0
    double memoryLimitMiB = 24;       // finite, above 0
    std::size_t concurrency = 1;      // extension processes at once
    std::size_t queueCapacity = 1000; // pushes that may wait for one of them
    std::string appName = "FeXO";
    std::string hostCommand;  // shell command run on a click; empty: none
    std::string desktopEntry; // the app's desktop entry id, without ".desktop"; empty: none
    std::string icon;         // the notifications' app icon; empty: none

    std::chrono::milliseconds timeLimit() const;
    std::size_t memoryLimitBytes() const;
    // The extension's program and arguments, the default one when none was given.
    std::vector<std::string> extensionCommand() const;
};

// Checks a value as any finite number above 0 (in `unit`, named in the message), however large.
CLI::Validator finitePositive(const std::string& unit);

// `seconds` (finite, above 0) as a duration that a deadline counted from now can hold: beyond a
// century it is a century.
std::chrono::milliseconds durationOf(double seconds);

// Adds the options of `run` to `command`.
void addRunOptions(CLI::App& command, RunOptions& options);

// The path of the program that `command` would execute (searched in PATH when it has no slash),
// when it names a regular file this user may execute; else nothing, with `reason` in words.
std::optional<std::string> executableProgram(const std::string& program, std::string& reason);

} // namespace fexo::agent
