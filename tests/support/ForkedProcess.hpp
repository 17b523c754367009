#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

namespace fexo::test {

// Holds forked children until the parent lets them all go at once, so that they really run
// side by side. Create before forking; children call pass(), the parent calls open().
class StartGate {
public:
    StartGate();
    ~StartGate();
    StartGate(const StartGate&) = delete;
    StartGate& operator=(const StartGate&) = delete;

    void pass();  // in a child: blocks until the parent opens the gate
    void open();  // in the parent

private:
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

// A child made by fork() that runs `body` and exits with its result (99 when it throws).
// The child writes report lines to the descriptor it is given; the parent collects them while
// it waits. Use only from a process that has no other threads. The destructor kills and reaps
// a child that is still running.
class ForkedProcess {
public:
    explicit ForkedProcess(const std::function<int(int reportDescriptor)>& body);
    ~ForkedProcess();
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    // Writes one line with a single write(), so that a line is either reported whole or not at all.
    static void report(int reportDescriptor, const std::string& line);

    // The next report line, waiting at most `limit`; nothing on time-out or when the child ended
    // without another complete line.
    std::optional<std::string> nextLine(std::chrono::milliseconds limit);
    // Waits at most `limit` for the end, collecting reports meanwhile. The exit status, or the
    // negated signal number; nothing on time-out (the child is then killed).
    std::optional<int> wait(std::chrono::milliseconds limit);
    void kill();

    // Every complete line collected and not yet taken by nextLine().
    std::string takeReports();

private:
    bool collect(int timeoutMilliseconds); // false when nothing more can come
    std::optional<int> reap(bool block);

    pid_t pid_ = -1;
    int reports_ = -1;
    int pidDescriptor_ = -1;
    std::optional<int> status_;
    bool endOfReports_ = false;
    std::string buffer_;
};

} // namespace fexo::test
