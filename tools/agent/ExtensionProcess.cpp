#include <agent/ExtensionProcess.hpp>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace fexo::agent {

namespace {

void closeDescriptor(int& descriptor)
{
    if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
}

std::string because(const char* what)
{
    return std::string(what) + ": " + std::strerror(errno);
}

} // namespace

std::unique_ptr<ExtensionProcess> ExtensionProcess::start(const std::vector<std::string>& command,
                                                          std::unique_ptr<MemoryCgroup::Leaf> leaf,
                                                          std::string& failure)
{
    std::unique_ptr<ExtensionProcess> process(new ExtensionProcess());
    process->leaf_ = std::move(leaf);
    int toChild[2], fromChild[2], go[2], report[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0) {
        failure = because("cannot start");
        return nullptr;
    }
    if (::pipe2(fromChild, O_CLOEXEC) != 0) {
        failure = because("cannot start");
        ::close(toChild[0]), ::close(toChild[1]);
        return nullptr;
    }
    if (::pipe2(go, O_CLOEXEC) != 0) {
        failure = because("cannot start");
        ::close(toChild[0]), ::close(toChild[1]), ::close(fromChild[0]), ::close(fromChild[1]);
        return nullptr;
    }
    if (::pipe2(report, O_CLOEXEC) != 0) {
        failure = because("cannot start");
        ::close(toChild[0]), ::close(toChild[1]), ::close(fromChild[0]), ::close(fromChild[1]);
        ::close(go[0]), ::close(go[1]);
        return nullptr;
    }
    process->input_ = toChild[1];
    process->output_ = fromChild[0];
    process->go_ = go[1];
    process->report_ = report[0];

    // Everything the child touches is prepared here: after fork only async-signal-safe calls.
    std::vector<char*> argv;
    for (const auto& argument : command) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const int procs = process->leaf_ ? process->leaf_->processesDescriptor() : -1;
    const pid_t parent = ::getpid();

    const pid_t pid = ::fork();
    if (pid < 0) {
        failure = because("cannot start");
        ::close(toChild[0]), ::close(fromChild[1]), ::close(go[0]), ::close(report[1]);
        return nullptr;
    }
    if (pid == 0) {
        // Killed when the thread that forked it ends (with the agent, whatever ends it); the
        // check after it closes the window where the agent died before the request.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) ::_exit(126);
        if (procs >= 0 && ::write(procs, "0", 1) != 1) ::_exit(126);
        ::setpgid(0, 0);
        sigset_t all;
        ::sigemptyset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        struct sigaction standard { };
        standard.sa_handler = SIG_DFL;
        ::sigaction(SIGPIPE, &standard, nullptr);
        if (::dup2(toChild[0], 0) < 0 || ::dup2(fromChild[1], 1) < 0) ::_exit(126);
        char byte = 0;
        ssize_t got;
        while ((got = ::read(go[0], &byte, 1)) < 0 && errno == EINTR) { }
        if (got != 1) ::_exit(0); // never released: nothing was run
        ::execvp(argv[0], argv.data());
        const int execFailure = errno;
        [[maybe_unused]] auto reported = ::write(report[1], &execFailure, sizeof execFailure);
        ::_exit(127);
    }
    process->pid_ = pid;
    ::setpgid(pid, pid); // also here, so that a kill before the child ran reaches its group
    ::close(toChild[0]), ::close(fromChild[1]), ::close(go[0]), ::close(report[1]);
    process->exited_ = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (process->exited_ < 0) {
        failure = because("cannot watch it"); // never leave a process running unwatched
        return nullptr;                       // the destructor kills and reaps it
    }
    ::fcntl(process->input_, F_SETFL, O_NONBLOCK);
    ::fcntl(process->output_, F_SETFL, O_NONBLOCK);
    return process;
}

bool ExtensionProcess::release(std::string& failure)
{
    const char byte = 1;
    ssize_t written;
    while ((written = ::write(go_, &byte, 1)) < 0 && errno == EINTR) { }
    closeDescriptor(go_);
    int execFailure = 0;
    ssize_t reported;
    while ((reported = ::read(report_, &execFailure, sizeof execFailure)) < 0 && errno == EINTR) { }
    closeDescriptor(report_);
    if (written == 1 && reported <= 0) return true;
    failure = written == 1 ? std::strerror(execFailure) : "it ended before it ran";
    reap();
    return false;
}

void ExtensionProcess::closeInput()
{
    closeDescriptor(input_);
}

void ExtensionProcess::closeOutput()
{
    closeDescriptor(output_);
}

void ExtensionProcess::kill() const
{
    if (!reaped_ && pid_ > 0) ::kill(-pid_, SIGKILL);
}

int ExtensionProcess::reap()
{
    int status = 0;
    if (reaped_ || pid_ <= 0) return status;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) { }
    reaped_ = true;
    return status;
}

ExtensionProcess::~ExtensionProcess()
{
    closeDescriptor(go_); // a child still held ends on its own
    kill();
    reap();
    closeDescriptor(report_);
    closeDescriptor(input_);
    closeDescriptor(output_);
    closeDescriptor(exited_);
}

} // namespace fexo::agent
