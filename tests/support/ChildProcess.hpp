#pragma once

#include <support/ForkedProcess.hpp>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace fexo::test {

struct ProcessResult {
    int exitCode = -1; // the exit status, or -1 when a signal or the time limit ended the process
    int signal = 0;    // the signal that ended it, else 0
    std::string standardOutput;
    std::string standardError;
};

// A program run as a child process, with this process's environment. A started child has its
// standard output on a pipe to this process and its standard error discarded (or joined to its
// standard output), so that it never blocks on a pipe nobody reads. Destroying a child that
// still runs kills it (SIGKILL).
class ChildProcess {
public:
    enum class StandardError {
        discarded,
        onStandardOutput, // read with readLine() like the rest, in the order written
    };

    // Starts `program` with `arguments` (not including the program itself). Throws
    // std::runtime_error when it cannot be started.
    ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 StandardError errors = StandardError::discarded);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Runs `program` to its end with `standardInput`, collecting both outputs; killed with
    // SIGKILL after a minute.
    static ProcessResult run(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                             const std::string& standardInput = "");

    // The next line of standard output without its line feed; what was read so far when the
    // output ends or no byte arrives within `limit`.
    std::string readLine(std::chrono::milliseconds limit = std::chrono::seconds(10));

    // Sends `signal` (0 sends none) and waits at most `limit` for the child to end; call once.
    // Returns its exit status, 128 + the signal number when a signal ended it, or -1 when it had
    // not ended in time (it is then killed).
    int stop(int signal, std::chrono::milliseconds limit = std::chrono::seconds(10));

private:
    int output_ = -1;
    std::unique_ptr<ForkedProcess> process_;
};

} // namespace fexo::test
