#pragma once

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
using tool::originalContent;
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
};

// Runs the extension program once per push, each run in a process of its own (and its own
// process group) that gets the push's JSON on standard input. The time limit runs from the
// start; the memory limit is the cgroup's memory.max when a delegated cgroup is given, else
// the process's resident set, read while it runs. At either limit the process and its group
// are killed. The child's standard error is this process's.
// Thread rules: run() may be called from several threads at once.
class ExtensionRunner {
public:
    // `command` is the program and its arguments; `cgroup` may be null.
    ExtensionRunner(std::vector<std::string> command, ExtensionLimits limits, std::unique_ptr<MemoryCgroup> cgroup);

    // Runs the program to its end with `input`; `name` names its cgroup. Blocks at most about
    // the time limit (plus the time to reap a killed process).
    ExtensionRun run(const std::string& input, const std::string& name) const;

    // "cgroup memory.max under <path>" or "resident memory watched every 10 ms".
    std::string memoryEnforcement() const;

private:
    std::vector<std::string> command_;
    ExtensionLimits limits_;
    std::unique_ptr<MemoryCgroup> cgroup_;
};

} // namespace fexo::agent
