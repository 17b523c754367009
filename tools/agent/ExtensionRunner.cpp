#include <agent/ExtensionRunner.hpp>

#include <poll.h>
#include <signal.h>
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

std::unique_ptr<ExtensionProcess> ExtensionRunner::spawn(const std::string& name, std::string& failure) const
{
    auto leaf = cgroup_ ? cgroup_->makeLeaf(name, limits_.memoryBytes) : nullptr;
    if (cgroup_ && !leaf) {
        failure = "could not start: cannot make its cgroup";
        return nullptr;
    }
    return ExtensionProcess::start(command_, std::move(leaf), failure);
}

Supervision ExtensionRunner::supervise(ExtensionProcess& process, const std::string& input, int stop) const
{
    const auto deadline = std::chrono::steady_clock::now() + limits_.time;
    const bool watchResident = process.leaf() == nullptr;
    Supervision seen;
    std::size_t written = 0;
    char buffer[65536];
    // True when the output has ended (or failed).
    const auto drain = [&] {
        for (;;) {
            const ssize_t got = ::read(process.outputDescriptor(), buffer, sizeof buffer);
            if (got <= 0) return got == 0 || (errno != EAGAIN && errno != EINTR);
            seen.output.append(buffer, static_cast<std::size_t>(got));
            if (seen.output.size() > maximumOutputBytes)
                seen.output.erase(0, seen.output.size() - maximumOutputBytes / 2);
        }
    };
    if (input.empty()) process.closeInput();

    for (;;) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            seen.limit = "killed at the time limit of " + seconds(limits_.time);
            break;
        }
        if (watchResident && residentBytes(process.processGroup()) > limits_.memoryBytes) {
            seen.limit = "killed at the memory limit of " + std::to_string(limits_.memoryBytes >> 20) + " MiB";
            break;
        }
        auto wait =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now) + std::chrono::milliseconds(1);
        if (watchResident) wait = std::min(wait, residentWatchInterval);
        pollfd watched[4] = {{process.exitDescriptor(), POLLIN, 0},
                             {process.outputDescriptor(), POLLIN, 0},
                             {process.inputDescriptor(), POLLOUT, 0},
                             {stop, POLLIN, 0}};
        if (::poll(watched, 4, static_cast<int>(wait.count())) < 0 && errno != EINTR) {
            seen.limit = std::string("killed: cannot watch it: ") + std::strerror(errno);
            break;
        }
        if (watched[3].revents != 0) {
            seen.limit = "killed because the agent stops";
            seen.stopped = true;
            break;
        }
        if (watched[2].revents != 0) {
            const ssize_t sent = ::write(process.inputDescriptor(), input.data() + written, input.size() - written);
            if (sent > 0) written += static_cast<std::size_t>(sent);
            if ((sent < 0 && errno != EAGAIN && errno != EINTR) || written == input.size()) process.closeInput();
        }
        if (watched[1].revents != 0 && drain()) process.closeOutput();
        if (watched[0].revents != 0) break;
    }
    // The group goes whether the leader ended or not: nothing of an extension outlives its push.
    process.kill();
    seen.status = process.reap();
    if (process.outputDescriptor() >= 0) drain();
    return seen;
}

ExtensionRun ExtensionRunner::verdict(const ExtensionProcess& process, const Supervision& supervision) const
{
    ExtensionRun result;
    result.stopped = supervision.stopped;
    result.ending = supervision.limit.empty() ? describe(supervision.status) : supervision.limit;
    if (process.leaf() && process.leaf()->killedAtMemoryLimit())
        result.ending = "killed at the memory limit of " + std::to_string(limits_.memoryBytes >> 20) + " MiB";
    if (!result.stopped) result.content = printedContent(supervision.output);
    return result;
}

} // namespace fexo::agent
