#include <agent/NotificationAgent.hpp>

#include <nlohmann/json.hpp>
#include <sdbus-c++/sdbus-c++.h>

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

extern char** environ;

namespace fexo::agent {

namespace {

constexpr const char* notificationsName = "org.freedesktop.Notifications";
constexpr const char* notificationsPath = "/org/freedesktop/Notifications";
// A notification service that does not answer in this time is taken as absent.
constexpr std::chrono::seconds notifyTimeLimit{5};
// Notifications whose default action is still remembered; older ones lose it.
constexpr std::size_t maximumShown = 1000;

std::string errorName(const char* suffix)
{
    return std::string(agentInterface) + ".Error." + suffix;
}

long long millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
}

// Runs `command` with /bin/sh in a grandchild, so that nothing is left to reap here.
void spawnDetached(const std::string& command, const std::string& requestId)
{
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry)
        if (std::string_view(*entry).substr(0, 16) != "FEXO_REQUEST_ID=") environment.emplace_back(*entry);
    environment.push_back("FEXO_REQUEST_ID=" + requestId);
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);
    const char* argv[] = {"/bin/sh", "-c", command.c_str(), nullptr};

    const pid_t child = ::fork();
    if (child == 0) {
        ::setsid();
        sigset_t all;
        ::sigemptyset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        struct sigaction standard { };
        standard.sa_handler = SIG_DFL;
        ::sigaction(SIGPIPE, &standard, nullptr);
        if (::fork() == 0) ::execve("/bin/sh", const_cast<char**>(argv), envp.data());
        ::_exit(0);
    }
    if (child > 0) ::waitpid(child, nullptr, 0);
}

} // namespace

NotificationAgent::NotificationAgent(std::unique_ptr<sdbus::IConnection> connection, const ExtensionRunner& runner,
                                     AgentSettings settings)
    : settings_(std::move(settings)), connection_(std::move(connection))
{
    wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0) throw std::runtime_error("cannot make an eventfd");
    queue_ = std::make_unique<PushQueue>(runner, settings_.concurrency, settings_.queueCapacity,
                                         [this](PushJob job, ExtensionRun run) {
                                             {
                                                 std::lock_guard lock(finishedMutex_);
                                                 finished_.push_back({std::move(job), std::move(run)});
                                             }
                                             const std::uint64_t one = 1;
                                             [[maybe_unused]] auto written = ::write(wake_, &one, sizeof one);
                                         });

    notifications_ = sdbus::createProxy(*connection_, notificationsName, notificationsPath);
    if (!settings_.hostCommand.empty()) {
        notifications_->uponSignal("ActionInvoked")
            .onInterface(notificationsName)
            .call([this](std::uint32_t id, const std::string& action) {
                if (action == "default") openHostApp(id);
            });
        notifications_->uponSignal("NotificationClosed")
            .onInterface(notificationsName)
            .call([this](std::uint32_t id, std::uint32_t) { shown_.erase(id); });
    }
    notifications_->finishRegistration();

    object_ = sdbus::createObject(*connection_, agentObjectPath);
    object_->registerMethod("Push")
        .onInterface(agentInterface)
        .withInputParamNames("userInfoJSON")
        .withOutputParamNames("requestId")
        .implementedAs([this](const std::string& userInfoJSON) { return push(userInfoJSON); });
    object_->registerSignal("Delivered")
        .onInterface(agentInterface)
        .withParameters<std::string, std::string, std::string, bool>("requestId", "title", "body", "rewritten");
    object_->finishRegistration();
    // Last: a caller that activated the agent has its Push queued until the name is taken.
    connection_->requestName(agentBusName);
}

NotificationAgent::~NotificationAgent()
{
    queue_.reset();
    ::close(wake_);
}

std::string NotificationAgent::push(const std::string& userInfoJSON)
{
    if (userInfoJSON.size() > maximumPushBytes)
        throw sdbus::Error(errorName("TooLarge"), "the push is " + std::to_string(userInfoJSON.size()) +
                                                      " bytes, over the limit of " + std::to_string(maximumPushBytes));
    const auto userInfo = nlohmann::json::parse(userInfoJSON, nullptr, false);
    if (userInfo.is_discarded()) throw sdbus::Error(errorName("NotJSON"), "the push is not JSON");
    if (!userInfo.is_object())
        throw sdbus::Error(errorName("NotJSON"), "the push must be a JSON object (its user-info dictionary)");

    char requestId[33];
    std::snprintf(requestId, sizeof requestId, "%016llx%016llx", static_cast<unsigned long long>(random_()),
                  static_cast<unsigned long long>(random_()));
    if (!queue_->submit({requestId, userInfoJSON, originalContent(userInfo), std::chrono::steady_clock::now()}))
        throw sdbus::Error(errorName("QueueFull"), "the agent already has " + std::to_string(settings_.queueCapacity) +
                                                       " pushes waiting; try again later");
    return requestId;
}

void NotificationAgent::deliverFinished()
{
    std::uint64_t count = 0;
    [[maybe_unused]] auto read = ::read(wake_, &count, sizeof count);
    std::vector<Finished> finished;
    {
        std::lock_guard lock(finishedMutex_);
        finished.swap(finished_);
    }
    for (auto& one : finished) show(std::move(one));
}

void NotificationAgent::show(Finished finished)
{
    auto delivery = std::make_shared<const DeliveredContent>(finished.run.content.value_or(finished.job.original));
    auto log = std::make_shared<std::string>(finished.job.requestId + ": " +
                                             (finished.run.content ? "content of the extension" : "original alert") +
                                             " (extension " + finished.run.ending + ")");
    std::vector<std::string> actions;
    if (!settings_.hostCommand.empty()) actions = {"default", "Open"};

    // Delivered follows the notification service's answer, so that a receiver of the signal
    // finds the notification shown; without an answer it still follows, once.
    auto signal = [this, delivery, log, requestId = finished.job.requestId,
                   accepted = finished.job.accepted](const sdbus::Error* error, std::uint32_t id) {
        if (error == nullptr && !settings_.hostCommand.empty()) {
            shown_[id] = requestId;
            if (shown_.size() > maximumShown) shown_.erase(shown_.begin());
        }
        object_->emitSignal("Delivered")
            .onInterface(agentInterface)
            .withArguments(requestId, delivery->title, delivery->body, delivery->rewritten);
        std::cerr << "fexo-agent: push " << *log << ", "
                  << (error == nullptr ? "shown as notification " + std::to_string(id)
                                       : "not shown: " + error->getName())
                  << ", " << millisecondsSince(accepted) << " ms" << std::endl;
    };
    try {
        notifications_->callMethodAsync("Notify")
            .onInterface(notificationsName)
            .withTimeout(notifyTimeLimit)
            .withArguments(settings_.appName, std::uint32_t{0}, std::string(), delivery->title, delivery->body, actions,
                           std::map<std::string, sdbus::Variant>{}, std::int32_t{-1})
            .uponReplyInvoke(signal);
    } catch (const sdbus::Error& error) {
        signal(&error, 0);
    }
}

void NotificationAgent::openHostApp(std::uint32_t notification)
{
    const auto found = shown_.find(notification);
    if (found == shown_.end()) return; // another application's notification
    const std::string requestId = found->second;
    shown_.erase(found);
    std::cerr << "fexo-agent: push " << requestId << ": default action, running the host app's command" << std::endl;
    spawnDetached(settings_.hostCommand, requestId);
}

int NotificationAgent::run()
{
    sigset_t stop;
    ::sigemptyset(&stop);
    ::sigaddset(&stop, SIGTERM);
    ::sigaddset(&stop, SIGINT);
    const int stopped = ::signalfd(-1, &stop, SFD_CLOEXEC | SFD_NONBLOCK);
    for (;;) {
        try {
            while (connection_->processPendingRequest()) { }
        } catch (const sdbus::Error& error) {
            std::cerr << "fexo-agent: lost the session bus: " << error.getMessage() << std::endl;
            ::close(stopped);
            return 1;
        }
        const auto bus = connection_->getEventLoopPollData();
        int timeout = -1;
        if (const auto relative = bus.getRelativeTimeout())
            timeout = static_cast<int>((relative->count() + 999) / 1000);
        pollfd watched[3] = {{bus.fd, bus.events, 0}, {wake_, POLLIN, 0}, {stopped, POLLIN, 0}};
        if (::poll(watched, 3, timeout) < 0 && errno != EINTR) {
            std::cerr << "fexo-agent: poll failed: " << std::strerror(errno) << std::endl;
            return 1;
        }
        if (watched[2].revents != 0) {
            std::cerr << "fexo-agent: stopping; pushes not yet delivered are dropped" << std::endl;
            ::close(stopped);
            return 0;
        }
        if (watched[1].revents != 0) deliverFinished();
    }
}

} // namespace fexo::agent
