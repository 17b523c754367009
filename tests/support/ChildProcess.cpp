#include <support/ChildProcess.hpp>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace fexo::test {

namespace {

void closeDescriptor(int& fd)
{
    if (fd >= 0) ::close(fd);
    fd = -1;
}

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& changes)
{
    std::map<std::string, std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        const auto equals = text.find('=');
        if (equals != std::string::npos) all[text.substr(0, equals)] = text.substr(equals + 1);
    }
    for (const auto& [name, value] : changes) {
        if (value.empty()) {
            all.erase(name);
        } else {
            all[name] = value;
        }
    }
    std::vector<std::string> out;
    for (const auto& [name, value] : all) out.push_back(name + "=" + value);
    return out;
}

} // namespace

ChildProcess::ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                           const ProcessOptions& options)
    : ChildProcess(program, arguments, options, false)
{
}

ChildProcess::ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                           const ProcessOptions& options, bool collectErrors)
{
    int in[2], out[2], err[2] = {-1, -1};
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || (collectErrors && ::pipe2(err, O_CLOEXEC) != 0)) {
        throw std::runtime_error("pipe failed");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    if (collectErrors) {
        posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    if (options.workingDirectory) {
        posix_spawn_file_actions_addchdir_np(&actions, options.workingDirectory->c_str());
    }

    std::vector<std::string> words{program.string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    auto environment = mergedEnvironment(options.environment);
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);

    const int status = ::posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    closeDescriptor(err[1]);
    input_ = in[1];
    output_ = out[0];
    errors_ = err[0];
    if (!collectErrors) closeDescriptor(input_); // the child sees the end of its input at once
    if (status != 0) {
        pid_ = 0;
        closeDescriptor(input_);
        closeDescriptor(output_);
        closeDescriptor(errors_);
        throw std::runtime_error("cannot start " + program.string() + ": " + std::strerror(status));
    }
}

ChildProcess::~ChildProcess()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    closeDescriptor(input_);
    closeDescriptor(output_);
    closeDescriptor(errors_);
}

ProcessResult ChildProcess::run(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                                const ProcessOptions& options)
{
    ChildProcess child(program, arguments, options, true);
    ProcessResult result;
    std::size_t written = 0;
    if (options.standardInput.empty()) closeDescriptor(child.input_);
    const auto deadline = std::chrono::steady_clock::now() + options.timeLimit;
    ::signal(SIGPIPE, SIG_IGN);
    while (child.output_ >= 0 || child.errors_ >= 0) {
        std::vector<pollfd> fds;
        if (child.output_ >= 0) fds.push_back({child.output_, POLLIN, 0});
        if (child.errors_ >= 0) fds.push_back({child.errors_, POLLIN, 0});
        if (child.input_ >= 0) fds.push_back({child.input_, POLLOUT, 0});
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            ::kill(child.pid_, SIGKILL);
            result.timedOut = true;
            break;
        }
        const int ready = ::poll(fds.data(), fds.size(), static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue;
        for (const auto& p : fds) {
            if (p.revents == 0) continue;
            if (p.fd == child.input_) {
                const ssize_t n = ::write(p.fd, options.standardInput.data() + written,
                                          options.standardInput.size() - written);
                if (n > 0) written += static_cast<std::size_t>(n);
                if (n < 0 || written == options.standardInput.size()) closeDescriptor(child.input_);
                continue;
            }
            char buffer[65536];
            const ssize_t n = ::read(p.fd, buffer, sizeof buffer);
            const bool isOutput = p.fd == child.output_;
            if (n > 0) {
                (isOutput ? result.standardOutput : result.standardError).append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                closeDescriptor(isOutput ? child.output_ : child.errors_);
            }
        }
    }
    int status = 0;
    while (::waitpid(child.pid_, &status, 0) < 0 && errno == EINTR) {
    }
    child.pid_ = 0;
    if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    return result;
}

std::string ChildProcess::readLine(std::chrono::milliseconds limit)
{
    std::string line;
    for (char c = 0;;) {
        pollfd descriptor{output_, POLLIN, 0};
        if (::poll(&descriptor, 1, static_cast<int>(limit.count())) != 1) break;
        if (::read(output_, &c, 1) != 1 || c == '\n') break;
        line.push_back(c);
    }
    return line;
}

int ChildProcess::stop(int signal, std::chrono::milliseconds limit)
{
    if (pid_ <= 0) return -1;
    if (signal != 0) ::kill(pid_, signal);
    auto waiter = std::async(std::launch::async, [pid = pid_] {
        int status = 0;
        ::waitpid(pid, &status, 0);
        return status;
    });
    const bool ended = waiter.wait_for(limit) == std::future_status::ready;
    if (!ended) ::kill(pid_, SIGKILL);
    const int status = waiter.get();
    pid_ = 0;
    if (!ended) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace fexo::test
