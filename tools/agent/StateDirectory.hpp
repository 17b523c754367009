#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace fexo::agent {

// The agent's own folder, $XDG_STATE_HOME/fexo/agent (~/.local/state/fexo/agent when the
// variable is unset, empty or not absolute), and the lock that makes one agent per user.
// Folders the agent makes are 0700, and its own two folders are tightened to 0700 when found
// looser; files in it are made 0600.
// Thread rules: any thread; the lock is the process's for as long as the object lives.
class StateDirectory {
public:
    // Where the folder is, from the environment (nothing when neither XDG_STATE_HOME nor a home
    // directory is known).
    static std::optional<std::filesystem::path> location();

    // Makes the folder when missing. False, with `reason` in words, when it cannot be made.
    bool prepare(std::string& reason);

    // Takes the exclusive lock on "agent.lock" without waiting. False when another process holds
    // it (`reason` then says so) or the file cannot be opened.
    bool lock(std::string& reason);

    explicit StateDirectory(std::filesystem::path path) : path_(std::move(path)) { }
    ~StateDirectory();
    StateDirectory(const StateDirectory&) = delete;
    StateDirectory& operator=(const StateDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // True when the lock failed because another process holds it.
    bool heldElsewhere() const { return heldElsewhere_; }

private:
    std::filesystem::path path_;
    int lock_ = -1;
    bool heldElsewhere_ = false;
};

} // namespace fexo::agent
