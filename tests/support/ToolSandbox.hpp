#pragma once

#include <support/Configuration.hpp>
#include <support/Process.hpp>
#include <support/TemporaryDirectory.hpp>

#include <FeXOPlatform/UserDefaults.hpp>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace fexo::test {

// A place to run the fexo tool as separate processes: a temporary resources directory that
// holds the configuration file and a temporary app-group root. Construction points
// FEXO_RESOURCES_DIR and FEXO_APP_GROUPS_DIR of this process at them, so every tool run and
// store() see the same files; make the sandbox before starting any thread in the test.
class ToolSandbox {
public:
    // `tool` is the fexo executable to run.
    explicit ToolSandbox(std::filesystem::path tool);
    ToolSandbox(const ToolSandbox&) = delete;
    ToolSandbox& operator=(const ToolSandbox&) = delete;

    // Writes the configuration file with `baseURL` and the other values kept by the sandbox.
    void configure(const std::string& baseURL);
    const ConfigurationValues& values() const { return values_; }

    // Runs `fexo` with `arguments` to its end (killed after `limit`) with `standardInput`.
    ProcessResult run(const std::vector<std::string>& arguments, const std::string& standardInput = "",
                      std::chrono::milliseconds limit = std::chrono::seconds(30)) const;

    // The configured app group's store, opened in this process.
    std::shared_ptr<UserDefaults> store() const;

private:
    std::filesystem::path tool_;
    TemporaryDirectory directory_;
    ConfigurationValues values_;
};

// The lines of a process's standard output, without their line feeds.
std::vector<std::string> outputLines(const std::string& output);

} // namespace fexo::test
