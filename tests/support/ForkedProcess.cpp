#include <support/ForkedProcess.hpp>

#include <csignal>
#include <cerrno>
#include <poll.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fexo::test {

namespace {

void closeDescriptor(int& fd)
{
    if (fd >= 0) ::close(fd);
    fd = -1;
}

} // namespace

StartGate::StartGate()
{
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("pipe failed");
    readEnd_ = fds[0];
    writeEnd_ = fds[1];
}

StartGate::~StartGate()
{
    closeDescriptor(readEnd_);
    closeDescriptor(writeEnd_);
}

void StartGate::pass()
{
    closeDescriptor(writeEnd_);
    char byte = 0;
    while (::read(readEnd_, &byte, 1) < 0 && errno == EINTR) {
    }
}

void StartGate::open()
{
    closeDescriptor(writeEnd_);
}

ForkedProcess::ForkedProcess(const std::function<int(int)>& body)
{
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("pipe failed");
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
        ::close(fds[0]);
        int code = 99;
        try {
            code = body(fds[1]);
        } catch (...) {
        }
        ::_exit(code);
    }
    ::close(fds[1]);
    reports_ = fds[0];
    pidDescriptor_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
    if (pidDescriptor_ < 0) throw std::runtime_error("pidfd_open failed");
}

ForkedProcess::~ForkedProcess()
{
    if (!status_) {
        kill();
        reap(true);
    }
    closeDescriptor(reports_);
    closeDescriptor(pidDescriptor_);
}

void ForkedProcess::report(int reportDescriptor, const std::string& line)
{
    const std::string text = line + "\n";
    while (::write(reportDescriptor, text.data(), text.size()) < 0 && errno == EINTR) {
    }
}

void ForkedProcess::kill()
{
    if (!status_) ::kill(pid_, SIGKILL);
}

std::optional<int> ForkedProcess::reap(bool block)
{
    if (status_) return status_;
    int raw = 0;
    const pid_t done = ::waitpid(pid_, &raw, block ? 0 : WNOHANG);
    if (done != pid_) return std::nullopt;
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
    return status_;
}

bool ForkedProcess::collect(int timeoutMilliseconds)
{
    pollfd fds[2];
    nfds_t count = 0;
    int reportsIndex = -1;
    int pidIndex = -1;
    if (!endOfReports_) {
        reportsIndex = static_cast<int>(count);
        fds[count++] = {reports_, POLLIN, 0};
    }
    if (!status_) {
        pidIndex = static_cast<int>(count);
        fds[count++] = {pidDescriptor_, POLLIN, 0};
    }
    if (count == 0) return false;
    const int ready = ::poll(fds, count, timeoutMilliseconds);
    if (ready < 0) return errno == EINTR;
    bool progressed = false;
    if (reportsIndex >= 0 && (fds[reportsIndex].revents & (POLLIN | POLLHUP | POLLERR))) {
        char chunk[4096];
        const ssize_t n = ::read(reports_, chunk, sizeof chunk);
        if (n > 0) {
            buffer_.append(chunk, static_cast<std::size_t>(n));
            progressed = true;
        } else if (n == 0) {
            endOfReports_ = true;
        }
    }
    if (pidIndex >= 0 && (fds[pidIndex].revents & POLLIN)) {
        reap(true);
        progressed = true;
    }
    // After the end only what is already in the pipe can come; siblings may hold its write end.
    return status_ ? progressed : true;
}

std::optional<std::string> ForkedProcess::nextLine(std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto end = buffer_.find('\n');
        if (end != std::string::npos) {
            std::string line = buffer_.substr(0, end);
            buffer_.erase(0, end + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return std::nullopt;
        if (!collect(status_ ? 0 : static_cast<int>(left.count()))) return std::nullopt;
    }
}

std::optional<int> ForkedProcess::wait(std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!status_) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            kill();
            reap(true);
            return std::nullopt;
        }
        collect(static_cast<int>(left.count()));
    }
    while (collect(0)) {
    }
    return status_;
}

std::string ForkedProcess::takeReports()
{
    const auto end = buffer_.rfind('\n');
    if (end == std::string::npos) return {};
    std::string lines = buffer_.substr(0, end + 1);
    buffer_.erase(0, end + 1);
    return lines;
}

} // namespace fexo::test
