#pragma once

#include <agent/MemoryCgroup.hpp>

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace fexo::agent {

// One extension process: forked, in a process group of its own (and in `leaf` when given), with
// pipes for its standard input and output, and held before it executes the program, so that the
// caller can record the process group durably before the extension can do anything.
//
// The child dies with the thread that started it (PR_SET_PDEATHSIG): start() from a thread that
// lives as long as the process is wanted. Its standard error is this process's. Destruction
// kills the whole group and reaps the child, whatever state it is in.
// Thread rules: one thread uses an object at a time.
class ExtensionProcess {
public:
    // Forks the held child for `command` (program and arguments; the program is searched in PATH
    // when it has no slash). Null, with `failure` in words, when it cannot be started.
    static std::unique_ptr<ExtensionProcess> start(const std::vector<std::string>& command,
                                                   std::unique_ptr<MemoryCgroup::Leaf> leaf, std::string& failure);
    ~ExtensionProcess();
    ExtensionProcess(const ExtensionProcess&) = delete;
    ExtensionProcess& operator=(const ExtensionProcess&) = delete;

    // Lets the child execute the program. False, with `failure` in words, when the program could
    // not be executed (the child has then ended and is reaped).
    bool release(std::string& failure);

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
    int go_ = -1;     // one byte lets the child execute; closing it unwritten ends the child
    int report_ = -1; // closed by a successful exec; carries errno when exec fails
    bool reaped_ = false;
    std::unique_ptr<MemoryCgroup::Leaf> leaf_;
};

} // namespace fexo::agent
