#include <support/ForkedProcess.hpp>

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fexo::test {

ForkedProcess::ForkedProcess(const std::function<int()>& body)
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

ForkedProcess::~ForkedProcess()
{
    wait(std::chrono::milliseconds(0));
    ::close(pidDescriptor_);
}

std::optional<int> ForkedProcess::wait(std::chrono::milliseconds limit)
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

} // namespace fexo::test
