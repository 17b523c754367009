#include <agent/DetachedProcess.hpp>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

extern char** environ;

namespace fexo::agent {

pid_t startDetached(const std::vector<std::string>& argv, const std::map<std::string, std::string>& added,
                    const std::vector<std::string>& removed, const std::string& workingDirectory, std::string& failure)
{
    // Everything the children touch is prepared here: after fork only async-signal-safe calls.
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view variable(*entry);
        const auto name = variable.substr(0, variable.find('='));
        const bool replaced =
            added.count(std::string(name)) > 0 || std::find(removed.begin(), removed.end(), name) != removed.end();
        if (!replaced) environment.emplace_back(variable);
    }
    for (const auto& [name, value] : added) environment.push_back(name + "=" + value);
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);
    std::vector<char*> arguments;
    for (const auto& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    const char* directory = workingDirectory.empty() ? nullptr : workingDirectory.c_str();

    // The grandchild's id, then errno when its exec failed; closed by a successful exec.
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0) {
        failure = std::string("cannot start: ") + std::strerror(errno);
        return -1;
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::setsid();
        sigset_t all;
        ::sigemptyset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        struct sigaction standard { };
        standard.sa_handler = SIG_DFL;
        for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &standard, nullptr);
        const pid_t grandchild = ::fork();
        if (grandchild != 0) {
            [[maybe_unused]] auto sent = ::write(report[1], &grandchild, sizeof grandchild);
            ::_exit(0);
        }
        const int nothing = ::open("/dev/null", O_RDONLY);
        if (nothing >= 0) ::dup2(nothing, 0);
        int execFailure = 0;
        if (directory != nullptr && ::chdir(directory) != 0) {
            execFailure = errno;
        } else {
            environ = envp.data();
            ::execvp(arguments[0], arguments.data());
            execFailure = errno;
        }
        [[maybe_unused]] auto sent = ::write(report[1], &execFailure, sizeof execFailure);
        ::_exit(127);
    }
    ::close(report[1]);
    if (child < 0) {
        ::close(report[0]);
        failure = std::string("cannot start: ") + std::strerror(errno);
        return -1;
    }
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) { }
    pid_t started = -1;
    int execFailure = 0;
    ssize_t got;
    while ((got = ::read(report[0], &started, sizeof started)) < 0 && errno == EINTR) { }
    if (got == sizeof started) {
        while ((got = ::read(report[0], &execFailure, sizeof execFailure)) < 0 && errno == EINTR) { }
        if (got == sizeof execFailure) {
            failure = "cannot run " + argv.front() + ": " + std::strerror(execFailure);
            started = -1;
        }
    } else {
        failure = "cannot start " + argv.front();
        started = -1;
    }
    ::close(report[0]);
    return started;
}

} // namespace fexo::agent
