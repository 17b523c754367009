#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace fexo::test {

struct ProcessResult {
    int exitCode = -1;     // the exit status, or -1 when the process was killed by a signal
    int signal = 0;        // the signal that ended it, else 0
    std::string standardOutput;
    std::string standardError;
    bool timedOut = false; // killed with SIGKILL when the time limit passed
};

struct ProcessOptions {
    std::string standardInput;
    // Added to (or replacing entries of) this process's environment; an empty value unsets.
    std::map<std::string, std::string> environment;
    std::optional<std::filesystem::path> workingDirectory;
    std::chrono::milliseconds timeLimit{60000};
};

// Runs `program` with `arguments` to its end, feeding standard input and collecting both
// outputs. The process is killed when the time limit passes.
ProcessResult runProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options = {});

} // namespace fexo::test
