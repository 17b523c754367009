#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <sys/types.h>

namespace fexo::test {

// A pipe that blocks whoever calls pass() until every process holding it has called open() or
// ended. Create before forking: the parent holds children back until they may all go at once,
// or waits for a child to signal that it has reached a point.
class StartGate {
public:
    StartGate();
    ~StartGate();
    void pass();
    void open();

private:
    int fds_[2] = {-1, -1};
};

// A child made by fork() that runs `body` and exits with its result (99 when it throws). Use only
// from a process without other threads. The destructor kills and reaps a child still running.
class ForkedProcess {
public:
    explicit ForkedProcess(const std::function<int()>& body);
    ~ForkedProcess();
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    // The exit status, or the negated signal number; nothing on time-out (the child is then killed).
    std::optional<int> wait(std::chrono::milliseconds limit);
    void kill();

private:
    pid_t pid_ = -1;
    int pidDescriptor_ = -1;
    std::optional<int> status_;
};

} // namespace fexo::test
