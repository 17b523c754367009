#pragma once

#include <FeXONotificationService/FeXOService.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace fexo::agent {

// The agent's hold on the app's inbox (the store that the extension writes): the records behind
// what it shows, their read marks and the unread count, and the store's changes made by any
// process.
//
// Made only when the configuration checks out, so that no mistake of configuration or store
// ends the agent: without a link the agent shows pushes as before, without badge, withdrawal or
// mark-read. A library exception raised later is logged (once) and taken as "unknown".
// Thread rules: every member may be called from any thread; observe()'s callback runs on the
// library's observer thread.
class InboxLink {
public:
    // The link, or null with one line on standard error saying why there is none.
    static std::unique_ptr<InboxLink> open();

    // Calls `changed` with the counts after every change of the store; false (logged) when the
    // store cannot be observed.
    bool observe(std::function<void(NotificationCounts)> changed);

    std::optional<std::uint64_t> unreadCount();
    // Whether the record `id` is stored and carries a notification; nothing when unknown.
    std::optional<bool> carriesNotification(const std::string& id);
    // Whether the record `id` is read or no longer stored; nothing when unknown.
    std::optional<bool> readOrGone(const std::string& id);
    // Marks the record `id` read, when it is still stored.
    void markRead(const std::string& id);

private:
    InboxLink() = default;
    void logFailure(const std::exception& failure);

    std::mutex mutex_; // one call at a time on the service
    FeXOService service_;
    NotificationObservation observation_;
    std::atomic<bool> failureLogged_{false};
};

} // namespace fexo::agent
