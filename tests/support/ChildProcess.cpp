#include <support/ChildProcess.hpp>

#include <csignal>
#include <fcntl.h>
#include <future>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace fexo::test {

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments)
{
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int status = ::posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    output_ = fds[0];
    if (status != 0) {
        pid_ = 0;
        throw std::runtime_error("cannot start " + program);
    }
}

ChildProcess::~ChildProcess()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    ::close(output_);
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
