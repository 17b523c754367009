#pragma once

#include <support/ChildProcess.hpp>
#include <support/Configuration.hpp>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>

namespace fexo::test {

// `fexo serve` on 127.0.0.1 at a free port, as a child process that accepts the client id and
// secret of `credentials`. Construction returns once the server has printed its base URL, and
// throws std::runtime_error when it does not within ten seconds. Destruction stops it with
// SIGTERM.
class DevelopmentServerProcess {
public:
    DevelopmentServerProcess(const std::filesystem::path& tool, const ConfigurationValues& credentials);
    ~DevelopmentServerProcess();
    DevelopmentServerProcess(const DevelopmentServerProcess&) = delete;
    DevelopmentServerProcess& operator=(const DevelopmentServerProcess&) = delete;

    const std::string& baseURL() const { return baseURL_; }

    // Queues a notification for `recipientId`; the push user-info the server answers with.
    nlohmann::json queueNotification(const std::string& recipientId, const std::string& text,
                                     const std::string& sender) const;
    // The registration bodies the server kept, oldest first.
    nlohmann::json registrations() const;

private:
    ConfigurationValues credentials_;
    ChildProcess child_;
    std::string baseURL_;
};

} // namespace fexo::test
