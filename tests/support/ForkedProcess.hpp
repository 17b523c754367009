#pragma once

#include <cerrno>
#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

namespace fexo::test {

// A pipe that blocks whoever calls pass() until every process holding it has called open() or
// ended. Create before forking: the parent holds children back until they may all go at once,
// or waits for a child to signal that it has reached a point.
struct StartGate {
    StartGate()
    {
        if (::pipe(fds) != 0) throw std::runtime_error("pipe failed");
    }
    ~StartGate() { ::close(fds[0]), ::close(fds[1]); }
    void pass()
    {
        open();
        char byte = 0;
        while (::read(fds[0], &byte, 1) < 0 && errno == EINTR) { }
    }
    void open() { ::close(std::exchange(fds[1], -1)); }

    int fds[2] = {-1, -1};
};

// A child made by fork() that runs `body` and exits with its result (99 when it throws). Use only
// from a process without other threads. The destructor kills and reaps a child still running.
class ForkedProcess {
public:
    explicit ForkedProcess(const std::function<int()>& body);
    ~ForkedProcess();
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    // The exit status, or the negated signal number; nothing on time-out, when the child is
    // killed with SIGKILL (a zero limit kills a child still running at once).
    std::optional<int> wait(std::chrono::milliseconds limit);

private:
    pid_t pid_ = -1;
    int pidDescriptor_ = -1;
    std::optional<int> status_;
};

} // namespace fexo::test
