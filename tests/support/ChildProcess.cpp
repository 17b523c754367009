#include <support/ChildProcess.hpp>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <future>
#include <stdexcept>
#include <utility>

extern char** environ;

namespace fexo::test {

namespace {

// Starts the program with this process's environment and the three descriptors as its
// standard input, output and error.
pid_t spawn(const std::filesystem::path& program, std::vector<std::string> words, int input, int output, int errors)
{
    words.insert(words.begin(), program.string());
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    pid_t pid = 0;
    const int status = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (status != 0) throw std::runtime_error("cannot start " + program.string() + ": " + std::strerror(status));
    return pid;
}

// Waits at most `limit` for `pid` to end, killing it when it has not: the wait status and
// whether it ended in time.
std::pair<int, bool> waitFor(pid_t pid, std::chrono::milliseconds limit)
{
    auto waiter = std::async(std::launch::async, [pid] {
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) { }
        return status;
    });
    const bool ended = waiter.wait_for(limit) == std::future_status::ready;
    if (!ended) ::kill(pid, SIGKILL);
    return {waiter.get(), ended};
}

// The whole content of a memory file, which is closed.
std::string contentOf(int fd)
{
    std::string content(static_cast<std::size_t>(::lseek(fd, 0, SEEK_END)), '\0');
    if (::pread(fd, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) content.clear();
    ::close(fd);
    return content;
}

} // namespace

ChildProcess::ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments)
{
    int out[2];
    const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nothing < 0 || ::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("cannot make the child's pipe");
    output_ = out[0];
    try {
        pid_ = spawn(program, arguments, nothing, out[1], nothing);
    } catch (...) {
        ::close(nothing), ::close(out[1]), ::close(output_);
        throw;
    }
    ::close(nothing), ::close(out[1]);
}

ChildProcess::~ChildProcess()
{
    if (pid_ > 0) ::kill(pid_, SIGKILL), ::waitpid(pid_, nullptr, 0);
    ::close(output_);
}

ProcessResult ChildProcess::run(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                                const std::string& standardInput)
{
    // Memory files, not pipes: nothing to pump while the child runs, whatever it writes.
    const int input = ::memfd_create("in", MFD_CLOEXEC), output = ::memfd_create("out", MFD_CLOEXEC),
              errors = ::memfd_create("err", MFD_CLOEXEC);
    if (::pwrite(input, standardInput.data(), standardInput.size(), 0) != static_cast<ssize_t>(standardInput.size())) {
        throw std::runtime_error("cannot write the child's standard input");
    }
    const pid_t pid = spawn(program, arguments, input, output, errors);
    ::close(input);
    const int status = waitFor(pid, std::chrono::minutes(1)).first;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, WIFSIGNALED(status) ? WTERMSIG(status) : 0, contentOf(output),
            contentOf(errors)};
}

std::string ChildProcess::readLine(std::chrono::milliseconds limit)
{
    std::string line;
    pollfd descriptor{output_, POLLIN, 0};
    for (char c = 0; ::poll(&descriptor, 1, static_cast<int>(limit.count())) == 1;) {
        if (::read(output_, &c, 1) != 1 || c == '\n') break;
        line.push_back(c);
    }
    return line;
}

int ChildProcess::stop(int signal, std::chrono::milliseconds limit)
{
    if (pid_ <= 0) return -1;
    if (signal != 0) ::kill(pid_, signal);
    const auto [status, ended] = waitFor(std::exchange(pid_, 0), limit);
    if (!ended) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace fexo::test
