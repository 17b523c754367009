#pragma once

#include <agent/ExtensionRunner.hpp>
#include <agent/PushQueue.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <random>
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

struct AgentSettings {
    std::size_t concurrency = 4;      // extension processes at once
    std::size_t queueCapacity = 1000; // pushes waiting for one of them
    std::string appName = "FeXO";     // the application name shown with each notification
    // A shell command run when the user chooses a notification's default action, with
    // FEXO_REQUEST_ID set to the push's request id; empty: notifications offer no action.
    std::string hostCommand;
};

// The agent on the session bus: owns org.fexo.NotificationAgent1, takes pushes, hands each to
// the extension runner through a bounded queue, shows what each push delivers through
// org.freedesktop.Notifications and then emits Delivered, exactly once per accepted push.
// Thread rules: every bus operation and every callback of the bus runs on the thread that
// calls run(); workers hand finished pushes over through an eventfd.
class NotificationAgent {
public:
    // Registers the object and takes the well-known name; throws sdbus::Error when the name is
    // owned by another process. `runner` must outlive the agent.
    NotificationAgent(std::unique_ptr<sdbus::IConnection> connection, const ExtensionRunner& runner,
                      AgentSettings settings);
    ~NotificationAgent();
    NotificationAgent(const NotificationAgent&) = delete;
    NotificationAgent& operator=(const NotificationAgent&) = delete;

    // Serves until SIGTERM or SIGINT (which the caller must have blocked in every thread);
    // the process's exit status.
    int run();

private:
    struct Finished {
        PushJob job;
        ExtensionRun run;
    };

    std::string push(const std::string& userInfoJSON);
    void deliverFinished();
    void show(Finished finished);
    void openHostApp(std::uint32_t notification);

    AgentSettings settings_;
    std::unique_ptr<sdbus::IConnection> connection_;
    std::unique_ptr<sdbus::IObject> object_;
    std::unique_ptr<sdbus::IProxy> notifications_;
    int wake_ = -1; // eventfd: workers finished a push
    std::mutex finishedMutex_;
    std::vector<Finished> finished_;
    std::map<std::uint32_t, std::string> shown_; // notification id → request id, bus thread only
    std::mt19937_64 random_{std::random_device{}()};
    std::unique_ptr<PushQueue> queue_; // last: its workers stop before the members above go
};

} // namespace fexo::agent
