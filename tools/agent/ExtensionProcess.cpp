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

// What the child of start() reads, and what it reports before it executes the program.
struct ChildSetup {
    char* const* argv;
    int processes; // the cgroup's cgroup.procs, or -1
    pid_t parent;
    int input, output;
    volatile int failure = 0;        // errno of the step that failed
    volatile bool executing = false; // set just before exec: a failure after it is the exec's
};

// The child's side of vfork(): system calls only, then the program or _exit. The agent catches
// no signal with a handler (it reads them from a signalfd), so a signal that reaches the child
// before the program runs can only end it.
[[noreturn]] void becomeExtension(ChildSetup& setup) noexcept
{
    // Killed when the thread that started it ends (with the agent, whatever ends it); the check
    // after it closes the window where the agent died before the request.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != setup.parent) ::_exit(126);
    if (setup.processes >= 0 && ::write(setup.processes, "0", 1) != 1) {
        setup.failure = errno;
        ::_exit(126);
    }
    ::setpgid(0, 0);
    sigset_t all;
    ::sigemptyset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    struct sigaction standard { };
    standard.sa_handler = SIG_DFL;
    ::sigaction(SIGPIPE, &standard, nullptr);
    if (::dup2(setup.input, 0) < 0 || ::dup2(setup.output, 1) < 0) {
        setup.failure = errno;
        ::_exit(126);
    }
    setup.executing = true;
    ::execvp(setup.argv[0], setup.argv);
    setup.failure = errno;
    ::_exit(127);
}

} // namespace

std::unique_ptr<ExtensionProcess> ExtensionProcess::start(const std::vector<std::string>& command,
                                                          std::unique_ptr<MemoryCgroup::Leaf> leaf,
                                                          std::string& failure)
{
    std::unique_ptr<ExtensionProcess> process(new ExtensionProcess());
    process->leaf_ = std::move(leaf);
    int toChild[2], fromChild[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0) {
        failure = because("could not start");
        return nullptr;
    }
    if (::pipe2(fromChild, O_CLOEXEC) != 0) {
        failure = because("could not start");
        ::close(toChild[0]), ::close(toChild[1]);
        return nullptr;
    }
    process->input_ = toChild[1];
    process->output_ = fromChild[0];

    // Everything the child touches is prepared here. The child borrows this process's memory
    // until it executes the program (vfork: no copy of the agent's pages, which cost most of a
    // start), so it makes system calls only and reports through `child`. This thread waits
    // meanwhile.
    std::vector<char*> argv;
    for (const auto& argument : command) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ChildSetup child{argv.data(), process->leaf_ ? process->leaf_->processesDescriptor() : -1, ::getpid(), toChild[0],
                     fromChild[1]};
    const pid_t pid = ::vfork();
    if (pid == 0) becomeExtension(child);
    if (pid < 0) failure = because("could not start");
    ::close(toChild[0]), ::close(fromChild[1]);
    if (pid < 0) return nullptr;
    process->pid_ = pid;
    if (child.failure != 0 || !child.executing) {
        const std::string reason = child.failure != 0 ? std::strerror(child.failure) : "the agent is ending";
        failure = child.executing ? "could not run " + command.front() + ": " + reason : "could not start: " + reason;
        return nullptr; // the destructor reaps it
    }
    process->exited_ = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (process->exited_ < 0) {
        failure = because("could not start: cannot watch it"); // never leave a process running unwatched
        return nullptr;                                        // the destructor kills and reaps it
    }
    ::fcntl(process->input_, F_SETFL, O_NONBLOCK);
    ::fcntl(process->output_, F_SETFL, O_NONBLOCK);
    return process;
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
    kill();
    reap();
    closeDescriptor(input_);
    closeDescriptor(output_);
    closeDescriptor(exited_);
}

} // namespace fexo::agent
