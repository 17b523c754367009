#pragma once

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <optional>
#include <stdexcept>
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
// from a process without other threads, or with a body that does nothing but execute a program.
// The destructor kills and reaps a child still running.
class ForkedProcess {
public:
    explicit ForkedProcess(const std::function<int()>& body)
    {
        if ((pid_ = ::fork()) < 0) throw std::runtime_error("fork failed");
        if (pid_ == 0) {
            int code = 99;
            try {
                code = body();
            } catch (...) {
            }
            ::_exit(code);
        }
        pidDescriptor_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
        if (pidDescriptor_ < 0) throw std::runtime_error("pidfd_open failed");
    }
    ~ForkedProcess()
    {
        wait(std::chrono::milliseconds(0));
        ::close(pidDescriptor_);
    }
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    // The exit status, or the negated signal number; nothing on time-out, when the child is
    // killed with SIGKILL (a zero limit kills a child still running at once).
    pid_t pid() const { return pid_; }
    std::optional<int> wait(std::chrono::milliseconds limit)
    {
        if (status_) return status_;
        pollfd entry{pidDescriptor_, POLLIN, 0};
        int ready = 0;
        while ((ready = ::poll(&entry, 1, static_cast<int>(limit.count()))) < 0 && errno == EINTR) { }
        if (ready <= 0) ::kill(pid_, SIGKILL);
        int raw = 0;
        while (::waitpid(pid_, &raw, 0) < 0 && errno == EINTR) { }
        status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
        return ready > 0 ? status_ : std::nullopt;
    }

private:
    pid_t pid_ = -1;
    int pidDescriptor_ = -1;
    std::optional<int> status_;
};

} // namespace fexo::test
