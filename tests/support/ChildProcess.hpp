#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace fexo::test {

// A program run as a child process with its standard output on a pipe to this process and
// its standard error discarded. Destroying a child that still runs kills it (SIGKILL).
class ChildProcess {
public:
    // Starts `program` with `arguments` (not including the program itself) and this process's
    // environment. Throws std::runtime_error when it cannot be started.
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // The next line of standard output without its line feed; what was read so far when the
    // output ends or no byte arrives within `limit`.
    std::string readLine(std::chrono::milliseconds limit = std::chrono::seconds(10));

    // Sends `signal` (0 sends none) and waits at most `limit` for the child to end. Returns its
    // exit status, 128 + the signal number when a signal ended it, or -1 when it had not ended
    // in time (it is then killed).
    int stop(int signal, std::chrono::milliseconds limit = std::chrono::seconds(10));

private:
    pid_t pid_ = 0;
    int output_ = -1;
};

} // namespace fexo::test
