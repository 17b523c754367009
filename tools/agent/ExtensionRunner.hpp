#pragma once

#include <agent/ExtensionProcess.hpp>
#include <agent/MemoryCgroup.hpp>
#include <common/DeliveredContent.hpp>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fexo::agent {

using tool::DeliveredContent;
using tool::deliveredContentJSON;
using tool::maximumPushBytes;
using tool::printedContent;

struct ExtensionLimits {
    std::chrono::milliseconds time{30000};
    std::size_t memoryBytes = 24u << 20; // resident memory
};

// How one extension process went: the content it printed, if any, and how it ended, in words
// for the log ("exited with status 0", "killed at the time limit of 30 s", ...).
struct ExtensionRun {
    std::optional<DeliveredContent> content;
    std::string ending;
    bool stopped = false; // killed because the agent stops: no verdict on the push
};

// What supervision saw of one process, before any verdict.
struct Supervision {
    int status = 0;     // its wait status
    std::string output; // the tail of its standard output
    std::string limit;  // the limit it was killed at, in words; empty when it ended on its own
    bool stopped = false;
};

// Runs the extension program for pushes, each run in a process of its own (and its own process
// group) that gets the push's JSON on standard input. The time limit runs from the start; the
// memory limit is the cgroup's memory.max when a delegated cgroup is given, else the process's
// resident set, read while it runs. At either limit the process and its group are killed. The
// child's standard error is this process's.
//
// One run is spawn(), supervise() and verdict(). Thread rules: every member may be called from several threads at once; a
// process is spawned, supervised and destroyed on one thread.
class ExtensionRunner {
public:
    // `command` is the program and its arguments; `cgroup` may be null.
    ExtensionRunner(std::vector<std::string> command, ExtensionLimits limits, std::unique_ptr<MemoryCgroup> cgroup);

    // The running process for one push; `name` names its cgroup. Null, with `failure` in words
    // ("could not start: …", "could not run <program>: …"), when the program does not run.
    std::unique_ptr<ExtensionProcess> spawn(const std::string& name, std::string& failure) const;

    // Feeds `input` to the process and collects its output until it ends, passes a
    // limit, or `stop` (a descriptor, -1 for none) becomes readable; then kills what is left of
    // its group and reaps it. Blocks at most about the time limit.
    Supervision supervise(ExtensionProcess& process, const std::string& input, int stop) const;

    // The content it delivered (its last line, when that is content and it was not killed) and
    // how it ended.
    ExtensionRun verdict(const ExtensionProcess& process, const Supervision& supervision) const;

    // "cgroup memory.max under <path>" or "resident memory watched every 10 ms".
    std::string memoryEnforcement() const;
    const std::vector<std::string>& command() const { return command_; }

private:
    std::vector<std::string> command_;
    ExtensionLimits limits_;
    std::unique_ptr<MemoryCgroup> cgroup_;
};

} // namespace fexo::agent
