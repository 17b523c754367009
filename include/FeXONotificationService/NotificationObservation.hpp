#pragma once

#include <FeXOPlatform/Export.hpp>

#include <cstdint>
#include <string>

namespace fexo {

class FeXOService;

// The handle of one FeXOService::observeNotifications(): the observation lives while the handle
// does. Move-only; a default-constructed or moved-from handle observes nothing.
//
// Threads: cancel() and the destructor stop the callbacks. No call starts after they return;
// one that is running is waited for, unless they are called from inside that callback (on the
// observer thread), where they return at once and the callback finishes normally. Do not wait
// in a callback for a thread that is cancelling its observation.
class FEXO_EXPORT NotificationObservation {
public:
    NotificationObservation();
    ~NotificationObservation();
    NotificationObservation(NotificationObservation&& other) noexcept;
    // Cancels the observation held before taking over `other`'s.
    NotificationObservation& operator=(NotificationObservation&& other) noexcept;
    NotificationObservation(const NotificationObservation&) = delete;
    NotificationObservation& operator=(const NotificationObservation&) = delete;

    // Stops the callbacks (see above); later calls do nothing.
    void cancel();
    // True until cancelled, moved from or destroyed.
    explicit operator bool() const;
    // For a handle that observeNotifications() could not put in place: why, in the system's
    // words (the file that cannot be made or watched, or that no watcher is left); else empty.
    const std::string& failure() const { return failure_; }

private:
    friend class FeXOService;
    explicit NotificationObservation(std::uint64_t token);
    explicit NotificationObservation(std::string failure);

    std::uint64_t token_ = 0;
    std::string failure_;
};

} // namespace fexo
