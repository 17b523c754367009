#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <unordered_map>

namespace fexo {

struct URLSessionTransfer;

// Internal. Keeps at most a fixed number of a session's transfers of one origin in curl at a
// time; the others wait, in the order they came, for a slot of their origin. curl keeps the
// per-host connection limit as well, but its own queue of transfers waiting for a connection
// could leave one waiting after the last connection came free.
// Session thread only.
class PerOriginAdmission {
public:
    void setSlotsPerOrigin(std::size_t slots) { slotsPerOrigin_ = slots == 0 ? 1 : slots; }

    // True when the transfer takes a slot of its origin now and may be handed to curl;
    // otherwise it is queued until release() hands it a slot.
    bool enter(URLSessionTransfer* transfer);
    // Gives back the slot of a transfer that left curl. Returns the next transfer of that
    // origin, which now holds the slot and is to be handed to curl, or nullptr.
    URLSessionTransfer* release(URLSessionTransfer* transfer);
    // Takes a queued transfer out of its queue.
    void withdraw(URLSessionTransfer* transfer);
    // Forgets every queued transfer (the session is ending).
    void clearQueues() { waiting_.clear(); }

private:
    std::size_t slotsPerOrigin_ = 1;
    std::unordered_map<std::string, std::size_t> admitted_;
    std::unordered_map<std::string, std::deque<URLSessionTransfer*>> waiting_;
};

} // namespace fexo
