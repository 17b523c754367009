#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace fexo {

// Waits, without polling, for writes to a set of files. One implementation per system, chosen
// when building (inotify on Linux); the observer thread is its only user.
//
// Threads: add(), remove() and wake() may be called from any thread while another thread is
// inside wait().
class FileChangeWatcher {
public:
    using Watch = int;

    // The system's watcher; nothing when the system refuses one (no descriptors left).
    static std::unique_ptr<FileChangeWatcher> make();
    virtual ~FileChangeWatcher() = default;

    // Starts reporting writes to the file at `path`, which must exist. Watching the same file
    // twice gives the same watch, which stays until removed as often as it was added. Nothing
    // when the file cannot be watched.
    virtual std::optional<Watch> add(const std::filesystem::path& path) = 0;
    virtual void remove(Watch watch) = 0;
    // Blocks until at least one watched file was written or wake() was called, then returns each
    // watch written since the last return, once, however many writes it saw (empty after a wake
    // alone).
    virtual std::vector<Watch> wait() = 0;
    // Makes the current or next wait() return.
    virtual void wake() = 0;
};

} // namespace fexo
