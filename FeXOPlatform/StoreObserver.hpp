#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace fexo {

// The process's one observer thread, which calls back after commits to watched stores in any
// process (each committing process raises the store's StoreChangeSignal after its commit is
// durable). The thread starts with the first observation of the process and ends with the last;
// it sleeps in the file watcher and never wakes on a timer.
//
// Callbacks run on that thread, one at a time, never inside the call that committed. Signals
// that arrive together, or while callbacks run, fold into one call per observation: an
// observation is called once after the last of them, with no delay added.
class StoreObserver {
public:
    using Token = std::uint64_t;

    // Calls `onChange` after each later commit to the store at `databasePath`. The watch is in
    // place when this returns: a commit that returns after it is never missed. 0 when the store
    // cannot be watched (no watcher, or the signal file cannot be made or watched); then `whyNot`
    // says why, in the system's words.
    static Token add(const std::filesystem::path& databasePath, std::function<void()> onChange, std::string& whyNot);
    // Ends an observation: no call of it starts after this returns. Waits for a call of it that
    // is running, unless called from the observer thread itself. Unknown tokens and 0 are ignored.
    static void remove(Token token);
};

} // namespace fexo
