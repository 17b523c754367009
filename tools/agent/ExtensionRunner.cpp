#include <agent/ExtensionRunner.hpp>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace fexo::agent {

namespace {

constexpr std::chrono::milliseconds residentWatchInterval{10};
// Only the last line counts; a process that prints more than this keeps its tail.
constexpr std::size_t maximumOutputBytes = 1 << 20;

class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) { }
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return descriptor_; }
    void reset(int descriptor = -1)
    {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = descriptor;
    }

private:
    int descriptor_;
};

std::size_t residentBytes(pid_t pid)
{
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/statm", static_cast<int>(pid));
    std::FILE* file = std::fopen(path, "re");
    if (file == nullptr) return 0;
    unsigned long size = 0, resident = 0;
    const int read = std::fscanf(file, "%lu %lu", &size, &resident);
    std::fclose(file);
    return read == 2 ? resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) : 0;
}

std::string describe(int status)
{
    if (WIFEXITED(status)) return "exited with status " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) return std::string("ended by signal ") + ::strsignal(WTERMSIG(status));
    return "ended";
}

std::string seconds(std::chrono::milliseconds time)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g s", static_cast<double>(time.count()) / 1000.0);
    return text;
}

} // namespace

ExtensionRunner::ExtensionRunner(std::vector<std::string> command, ExtensionLimits limits,
                                 std::unique_ptr<MemoryCgroup> cgroup)
    : command_(std::move(command)), limits_(limits), cgroup_(std::move(cgroup))
{
    if (command_.empty()) throw std::invalid_argument("the extension command is empty");
}

std::string ExtensionRunner::memoryEnforcement() const
{
    if (cgroup_) return "cgroup memory.max under " + cgroup_->path().string();
    return "resident memory watched every " + std::to_string(residentWatchInterval.count()) + " ms";
}

ExtensionRun ExtensionRunner::run(const std::string& input, const std::string& name) const
{
    int toChild[2], fromChild[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0) return {std::nullopt, std::string("cannot start: ") + std::strerror(errno)};
    Descriptor inputRead(toChild[0]), inputWrite(toChild[1]);
    if (::pipe2(fromChild, O_CLOEXEC) != 0) return {std::nullopt, std::string("cannot start: ") + std::strerror(errno)};
    Descriptor outputRead(fromChild[0]), outputWrite(fromChild[1]);

    const auto leaf = cgroup_ ? cgroup_->makeLeaf(name, limits_.memoryBytes) : nullptr;
    if (cgroup_ && !leaf) return {std::nullopt, "cannot make its cgroup"};
    const int procs = leaf ? leaf->processesDescriptor() : -1;

    // Everything the child touches is prepared here: after fork only async-signal-safe calls.
    std::vector<char*> argv;
    for (const auto& argument : command_) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    // Closed by a successful exec; carries errno when exec fails. Until then the child is a copy
    // of this process, whose resident memory must not count against the extension.
    int execReport[2];
    if (::pipe2(execReport, O_CLOEXEC) != 0)
        return {std::nullopt, std::string("cannot start: ") + std::strerror(errno)};
    Descriptor reportRead(execReport[0]), reportWrite(execReport[1]);

    const pid_t pid = ::fork();
    if (pid < 0) return {std::nullopt, std::string("cannot start: ") + std::strerror(errno)};
    if (pid == 0) {
        if (procs >= 0 && ::write(procs, "0", 1) != 1) ::_exit(126);
        ::setpgid(0, 0);
        sigset_t all;
        ::sigemptyset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        struct sigaction standard { };
        standard.sa_handler = SIG_DFL;
        ::sigaction(SIGPIPE, &standard, nullptr);
        if (::dup2(toChild[0], 0) < 0 || ::dup2(fromChild[1], 1) < 0) ::_exit(126);
        ::execvp(argv[0], argv.data());
        const int failure = errno;
        [[maybe_unused]] auto reported = ::write(execReport[1], &failure, sizeof failure);
        ::_exit(127);
    }
    ::setpgid(pid, pid); // also here, so that a kill before the child ran reaches its group
    inputRead.reset();
    outputWrite.reset();
    reportWrite.reset();
    int execFailure = 0;
    ssize_t reported;
    while ((reported = ::read(reportRead.get(), &execFailure, sizeof execFailure)) < 0 && errno == EINTR) { }
    if (reported > 0) {
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) { }
        return {std::nullopt, "could not run " + command_.front() + ": " + std::strerror(execFailure)};
    }
    Descriptor exited(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    ::fcntl(inputWrite.get(), F_SETFL, O_NONBLOCK);
    ::fcntl(outputRead.get(), F_SETFL, O_NONBLOCK);

    const auto deadline = std::chrono::steady_clock::now() + limits_.time;
    std::size_t written = 0;
    std::string output;
    std::string killed;
    char buffer[65536];
    const auto drain = [&] {
        for (;;) {
            const ssize_t got = ::read(outputRead.get(), buffer, sizeof buffer);
            if (got <= 0) return got == 0 || (errno != EAGAIN && errno != EINTR);
            output.append(buffer, static_cast<std::size_t>(got));
            if (output.size() > maximumOutputBytes) output.erase(0, output.size() - maximumOutputBytes / 2);
        }
    };
    if (input.empty()) inputWrite.reset();

    while (exited.get() >= 0) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            killed = "killed at the time limit of " + seconds(limits_.time);
            break;
        }
        if (!leaf && residentBytes(pid) > limits_.memoryBytes) {
            killed = "killed at the memory limit of " + std::to_string(limits_.memoryBytes >> 20) + " MiB";
            break;
        }
        auto wait =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now) + std::chrono::milliseconds(1);
        if (!leaf) wait = std::min(wait, residentWatchInterval);
        pollfd watched[3] = {{exited.get(), POLLIN, 0}, {outputRead.get(), POLLIN, 0}, {inputWrite.get(), POLLOUT, 0}};
        if (::poll(watched, 3, static_cast<int>(wait.count())) < 0 && errno != EINTR) break;
        if (watched[2].revents != 0) {
            const ssize_t sent = ::write(inputWrite.get(), input.data() + written, input.size() - written);
            if (sent > 0) written += static_cast<std::size_t>(sent);
            if ((sent < 0 && errno != EAGAIN && errno != EINTR) || written == input.size()) inputWrite.reset();
        }
        if (watched[1].revents != 0 && drain()) outputRead.reset();
        if (watched[0].revents != 0) break;
    }
    if (exited.get() < 0) killed = "cannot watch it"; // no process descriptor: never leave it running unwatched
    if (!killed.empty()) ::kill(-pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) { }
    if (outputRead.get() >= 0) drain();

    ExtensionRun result;
    result.ending = killed.empty() ? describe(status) : killed;
    if (leaf && leaf->killedAtMemoryLimit())
        result.ending = "killed at the memory limit of " + std::to_string(limits_.memoryBytes >> 20) + " MiB";
    result.content = printedContent(output);
    return result;
}

} // namespace fexo::agent
