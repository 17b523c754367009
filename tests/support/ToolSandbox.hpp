#pragma once

#include <support/ChildProcess.hpp>
#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace fexo::test {

// A host's files in a temporary directory, for the library in this process and for the fexo tool
// run as separate processes: a resources directory with a valid configuration file (its base URL
// 127.0.0.1:9, where nothing listens, until configure() changes it) and an app-group root.
// Construction points this process's main bundle, FEXO_RESOURCES_DIR and FEXO_APP_GROUPS_DIR at
// them, so the library and every tool run see the same files; make the sandbox before starting
// any thread in the test.
class ToolSandbox {
public:
    // `tool` is the fexo executable to run.
    explicit ToolSandbox(std::filesystem::path tool);
    ~ToolSandbox();
    ToolSandbox(const ToolSandbox&) = delete;
    ToolSandbox& operator=(const ToolSandbox&) = delete;

    // Writes the configuration file with `baseURL` and the other values kept by the sandbox.
    void configure(const std::string& baseURL);
    const ConfigurationValues& values() const { return values_; }
    // Where the configuration file is.
    std::filesystem::path resources() const { return directory_.path() / "resources"; }

    // Starts `fexo serve` on 127.0.0.1 at a free port, accepting the sandbox's client id and
    // secret, and configures the sandbox with its base URL. Returns once the server has printed
    // that URL; throws std::runtime_error when it does not within ten seconds. The server is
    // stopped with SIGTERM when the sandbox goes.
    void serve();
    // Queues a notification at the served server for `recipientId`; the push user-info it answers with.
    nlohmann::json queueNotification(const std::string& recipientId, const std::string& text,
                                     const std::string& sender) const;
    // Runs `fexo` with `arguments` and `standardInput` to its end (killed after a minute).
    ProcessResult run(const std::vector<std::string>& arguments, const std::string& standardInput = "") const;

private:
    std::filesystem::path tool_;
    TemporaryDirectory directory_;
    ConfigurationValues values_;
    std::unique_ptr<ChildProcess> server_;
};

// The lines of a process's standard output, without their line feeds.
std::vector<std::string> outputLines(const std::string& output);

} // namespace fexo::test
