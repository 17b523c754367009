#include <support/Process.hpp>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace fexo::test {

namespace {

struct Pipe {
    int fds[2] = {-1, -1};
    Pipe()
    {
        if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    }
    ~Pipe()
    {
        closeEnd(0);
        closeEnd(1);
    }
    void closeEnd(int end)
    {
        if (fds[end] >= 0) ::close(fds[end]);
        fds[end] = -1;
    }
};

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

ProcessResult runProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options)
{
    Pipe in;
    Pipe out;
    Pipe err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.fds[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.fds[1], STDERR_FILENO);
    if (options.workingDirectory) {
        posix_spawn_file_actions_addchdir_np(&actions, options.workingDirectory->c_str());
    }

    std::vector<std::string> argvStorage{program.string()};
    argvStorage.insert(argvStorage.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& a : argvStorage) argv.push_back(a.data());
    argv.push_back(nullptr);
    auto envStorage = mergedEnvironment(options.environment);
    std::vector<char*> envp;
    for (auto& e : envStorage) envp.push_back(e.data());
    envp.push_back(nullptr);

    pid_t pid = -1;
    const int spawned = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error("cannot start " + program.string() + ": " + std::strerror(spawned));
    in.closeEnd(0);
    out.closeEnd(1);
    err.closeEnd(1);

    ProcessResult result;
    std::size_t written = 0;
    if (options.standardInput.empty()) in.closeEnd(1);
    const auto deadline = std::chrono::steady_clock::now() + options.timeLimit;
    ::signal(SIGPIPE, SIG_IGN);
    while (out.fds[0] >= 0 || err.fds[0] >= 0) {
        std::vector<pollfd> fds;
        if (out.fds[0] >= 0) fds.push_back({out.fds[0], POLLIN, 0});
        if (err.fds[0] >= 0) fds.push_back({err.fds[0], POLLIN, 0});
        if (in.fds[1] >= 0) fds.push_back({in.fds[1], POLLOUT, 0});
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            ::kill(pid, SIGKILL);
            result.timedOut = true;
            break;
        }
        const int ready = ::poll(fds.data(), fds.size(), static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue;
        for (const auto& p : fds) {
            if (p.revents == 0) continue;
            if (p.fd == in.fds[1]) {
                const ssize_t n = ::write(p.fd, options.standardInput.data() + written,
                                          options.standardInput.size() - written);
                if (n > 0) written += static_cast<std::size_t>(n);
                if (n < 0 || written == options.standardInput.size()) in.closeEnd(1);
                continue;
            }
            char buffer[65536];
            const ssize_t n = ::read(p.fd, buffer, sizeof buffer);
            if (n > 0) {
                (p.fd == out.fds[0] ? result.standardOutput : result.standardError).append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                if (p.fd == out.fds[0]) out.closeEnd(0); else err.closeEnd(0);
            }
        }
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    return result;
}

} // namespace fexo::test
