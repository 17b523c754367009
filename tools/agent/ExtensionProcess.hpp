#pragma once

#include <agent/MemoryCgroup.hpp>

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace fexo::agent {

// One extension process, running the program: in a process group of its own (and in `leaf` when
// given), with pipes for its standard input and output.
//
// The child dies with the thread that started it (PR_SET_PDEATHSIG): start() from a thread that
// lives as long as the process is wanted. Its standard error is this process's. Destruction
// kills the whole group and reaps the child, whatever state it is in.
// Thread rules: one thread uses an object at a time.
class ExtensionProcess {
public:
    // Starts `command` (program and arguments; the program is searched in PATH when it has no
    // slash) and returns once the program runs. Null, with `failure` in words ("could not start:
    // …", "could not run <program>: …"), when it does not.
    static std::unique_ptr<ExtensionProcess> start(const std::vector<std::string>& command,
                                                   std::unique_ptr<MemoryCgroup::Leaf> leaf, std::string& failure);
    ~ExtensionProcess();
    ExtensionProcess(const ExtensionProcess&) = delete;
    ExtensionProcess& operator=(const ExtensionProcess&) = delete;

    pid_t processGroup() const { return pid_; }
    int inputDescriptor() const { return input_; }   // non-blocking write end of its standard input
    int outputDescriptor() const { return output_; } // non-blocking read end of its standard output
    int exitDescriptor() const { return exited_; }   // pidfd: readable once the child has ended
    const MemoryCgroup::Leaf* leaf() const { return leaf_.get(); }

    void closeInput();
    void closeOutput();
    // SIGKILL to the whole group.
    void kill() const;
    // Waits for the child and gives its wait status; call once.
    int reap();

private:
    ExtensionProcess() = default;

    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    int exited_ = -1;
    bool reaped_ = false;
    std::unique_ptr<MemoryCgroup::Leaf> leaf_;
};

} // namespace fexo::agent
