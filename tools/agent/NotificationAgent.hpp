#pragma once

#include <agent/AppScopes.hpp>
#include <agent/DesktopNotifications.hpp>
#include <agent/ExtensionRunner.hpp>
#include <agent/InboxLink.hpp>
#include <agent/LauncherBadge.hpp>
#include <agent/PushScheduler.hpp>
#include <agent/QueueDatabase.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace sdbus {
class IConnection;
class IObject;
class IProxy;
} // namespace sdbus

namespace fexo::agent {

inline constexpr const char* agentBusName = "org.fexo.NotificationAgent1";
inline constexpr const char* agentObjectPath = "/org/fexo/NotificationAgent1";
inline constexpr const char* agentInterface = "org.fexo.NotificationAgent1";

// How long running extensions (and the desktop's answers) may take once the agent is asked to
// stop.
inline constexpr std::chrono::seconds stopGrace{5};

struct AgentSettings {
    std::size_t concurrency = 1;      // extension processes at once
    std::size_t queueCapacity = 1000; // pushes waiting for one of them
    std::string appName = "FeXO";     // the application name shown with each notification
    std::string icon;                 // the notifications' app icon; empty: none
    // A shell command run when the user clicks a notification; empty: the click opens
    // `desktopEntry`, if any.
    std::string hostCommand;
    // The app's desktop entry id: the notifications' "desktop-entry" hint, the launcher badge,
    // and what a click opens without a host command; empty: none of them.
    std::string desktopEntry;
};

// Another connection owns org.fexo.NotificationAgent1 on this bus.
class NameTaken : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The agent on the session bus: owns org.fexo.NotificationAgent1, commits each push to the
// queue before Push answers, runs the extension for it, shows what it delivers through
// org.freedesktop.Notifications, and then signals Delivered to Push's caller. At start it takes
// up what the queue holds from an earlier agent. With an inbox link it also keeps the desktop in
// step with the inbox: a click marks the record read, records read or deleted anywhere have
// their notifications withdrawn, and the unread count is the launcher badge.
//
// Thread rules: every bus operation and every callback of the bus runs on the thread that
// calls run(); workers and the inbox's observer hand over through eventfds.
class NotificationAgent {
public:
    // Registers the object and takes the well-known name; throws NameTaken when another
    // connection owns it, sdbus::Error when the bus fails. Then links the inbox (InboxLink::open)
    // and takes up what the queue holds. `runner` and `queue` must outlive the agent.
    NotificationAgent(std::unique_ptr<sdbus::IConnection> connection, const ExtensionRunner& runner,
                      QueueDatabase& queue, AgentSettings settings);
    ~NotificationAgent();
    NotificationAgent(const NotificationAgent&) = delete;
    NotificationAgent& operator=(const NotificationAgent&) = delete;

    // Serves until SIGTERM or SIGINT (which the caller must have blocked in every thread), then
    // stops as described in the README; the process's exit status.
    int run();

private:
    struct Finished {
        QueuedPush push;
        std::string how; // for the log: where the content came from and how the extension ended
    };

    std::string push(const std::string& userInfoJSON);
    void recover();
    void finish(QueuedPush push, ExtensionRun run); // on a worker thread
    tool::DeliveredContent decide(const QueuedPush& push, const ExtensionRun& run);
    void showFinished();
    void show(QueuedPush push, std::string how);
    void signalDelivered(QueuedPush& push);
    void ownerChanged(const std::string& owner);
    void clicked(std::uint32_t notification, const std::string& action);
    void open(const ShownNotification& shown, const std::optional<std::string>& token);
    void openDesktopEntry(const std::map<std::string, std::string>& environment,
                          const std::optional<std::string>& token);
    void inboxChanged();
    void followInbox(std::optional<NotificationCounts> counts, bool readRecords);
    bool settled() const;

    AgentSettings settings_;
    std::unique_ptr<sdbus::IConnection> connection_;
    QueueDatabase& queue_;
    std::string busId_;
    std::unique_ptr<sdbus::IObject> object_;
    std::unique_ptr<DesktopNotifications> desktop_;
    std::unique_ptr<LauncherBadge> badge_;
    std::unique_ptr<AppScopes> scopes_;
    std::vector<std::unique_ptr<sdbus::IProxy>> activations_; // the latest org.freedesktop.Application calls
    std::mt19937_64 random_{std::random_device{}()};
    bool stopping_ = false;

    int wake_ = -1; // eventfd: workers finished a push
    mutable std::mutex finishedMutex_;
    std::vector<Finished> finished_;
    std::vector<QueuedPush> waitingForDesktop_;   // content known, no notification service yet
    std::map<std::uint32_t, std::string> tokens_; // activation tokens by notification, bus thread only

    int inboxWake_ = -1; // eventfd: the inbox changed
    std::mutex countsMutex_;
    std::optional<NotificationCounts> changedCounts_;
    std::optional<NotificationCounts> followedCounts_;

    std::unique_ptr<InboxLink> inbox_;         // used by the workers and the observer thread
    std::unique_ptr<PushScheduler> scheduler_; // the destructor ends it first, then the inbox's observation
    const ExtensionRunner& runner_;
};

} // namespace fexo::agent
