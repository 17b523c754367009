#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <sdbus-c++/TypeTraits.h>

namespace sdbus {
class IConnection;
class IProxy;
} // namespace sdbus

namespace fexo::agent {

// What one notification shows, as plain text.
struct NotificationRequest {
    std::string appName;
    std::string icon;
    std::string title;
    std::string body;
    std::string desktopEntry; // the "desktop-entry" hint; empty: none
};

// How the desktop took a notification.
struct NotificationOutcome {
    enum class Kind {
        shown,     // `notification` is its id at `owner`
        noDesktop, // nothing owns org.freedesktop.Notifications, and nothing could be started
        refused,   // the daemon answered with an error, or not within the time limit
    };
    Kind kind = Kind::refused;
    std::uint32_t notification = 0;
    std::string owner;
    std::string error; // the D-Bus error's name, for the log
};

// The agent's side of org.freedesktop.Notifications: follows which connection owns the name,
// asks each owner once for its capabilities, shows notifications as plain text (escaped where
// the daemon reads the body as markup, with the default action always and a visible "Open"
// action where the daemon has "actions"), withdraws them, and passes on the daemon's signals.
// Signals count only from the current owner of the name.
//
// Thread rules: everything, callbacks included, runs on the thread that dispatches
// `connection`. A callback runs inside the call that caused it only when the call cannot be sent
// at all (the connection is broken).
class DesktopNotifications {
public:
    struct Events {
        std::function<void(std::uint32_t notification, const std::string& action)> actionInvoked;
        std::function<void(std::uint32_t notification, const std::string& token)> activationToken;
        std::function<void(std::uint32_t notification)> closed;
        // The owner changed: notifications of the previous one are gone or out of reach. `owner`
        // is empty when nothing owns the name.
        std::function<void(const std::string& owner)> ownerChanged;
    };

    // The action keys a click arrives with: "default", and "open" for the visible button.
    static constexpr const char* defaultAction = "default";
    static constexpr const char* openAction = "open";

    DesktopNotifications(sdbus::IConnection& connection, Events events);
    ~DesktopNotifications();
    DesktopNotifications(const DesktopNotifications&) = delete;
    DesktopNotifications& operator=(const DesktopNotifications&) = delete;

    // The unique name of the daemon now; empty when there is none.
    const std::string& owner() const { return owner_; }

    // Shows `request` once the owner's capabilities are known; `done` runs exactly once.
    void show(NotificationRequest request, std::function<void(const NotificationOutcome&)> done);

    // Asks the daemon that owns the name now to close `notification`.
    void withdraw(std::uint32_t notification);

    // Calls that were sent and not yet answered, shows waiting for capabilities included.
    std::size_t unanswered() const { return unanswered_; }

private:
    struct Waiting {
        NotificationRequest request;
        std::function<void(const NotificationOutcome&)> done;
    };

    void setOwner(const std::string& owner);
    void askCapabilities();
    void notify(Waiting waiting);
    bool fromOwner(const std::string& sender) const { return !owner_.empty() && sender == owner_; }

    Events events_;
    std::unique_ptr<sdbus::IProxy> daemon_;
    sdbus::Slot ownerWatch_;
    std::string owner_;
    // The owner whose capabilities are known, and those capabilities.
    std::optional<std::string> capabilitiesOwner_;
    std::set<std::string> capabilities_;
    bool askingCapabilities_ = false;
    std::deque<Waiting> waiting_;
    std::size_t unanswered_ = 0;
};

} // namespace fexo::agent
