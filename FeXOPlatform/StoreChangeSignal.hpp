#pragma once

#include <filesystem>

namespace fexo {

// The small file beside a store that every writing process touches after each durable commit,
// and that observers watch. The store's own files cannot serve: the log is written before its
// commit becomes visible, and the shared-memory index that makes it visible changes through a
// memory map, which raises no file event.
class StoreChangeSignal {
public:
    // The signal file of the store at `databasePath`.
    static std::filesystem::path pathFor(const std::filesystem::path& databasePath);

    // Opens (creating, mode 0600, never through a symbolic link) the signal file of the store at
    // `databasePath`. A signal that cannot be opened stays silent: writes still succeed, only
    // observers in other processes miss them.
    explicit StoreChangeSignal(const std::filesystem::path& databasePath);
    ~StoreChangeSignal();
    StoreChangeSignal(const StoreChangeSignal&) = delete;
    StoreChangeSignal& operator=(const StoreChangeSignal&) = delete;

    // Tells every observer that a commit happened: one write of one byte. Any thread.
    void raise() const;

private:
    int descriptor_ = -1;
};

} // namespace fexo
