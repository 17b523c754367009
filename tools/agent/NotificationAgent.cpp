#include <agent/NotificationAgent.hpp>

#include <agent/DesktopEntry.hpp>
#include <agent/DetachedProcess.hpp>
#include <agent/NotificationText.hpp>

#include <FeXONotificationService/FeXOPushAlert.hpp>
#include <FeXOPlatform/CocoaError.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>

#include <sdbus-c++/sdbus-c++.h>

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <set>

namespace fexo::agent {

namespace {

// Activation tokens kept for notifications not yet clicked; the oldest go first.
constexpr std::size_t maximumTokens = 64;
// The variables a click sets for what it starts; the agent's own values are never passed on.
const std::vector<std::string> clickVariables{
    "FEXO_RECORD_ID",     "FEXO_REQUEST_ID",           "XDG_ACTIVATION_TOKEN",
    "DESKTOP_STARTUP_ID", "GIO_LAUNCHED_DESKTOP_FILE", "GIO_LAUNCHED_DESKTOP_FILE_PID"};

std::string errorName(const char* suffix)
{
    return std::string(agentInterface) + ".Error." + suffix;
}

long long millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
}

void wake(int eventDescriptor)
{
    const std::uint64_t one = 1;
    [[maybe_unused]] auto written = ::write(eventDescriptor, &one, sizeof one);
}

void drain(int eventDescriptor)
{
    std::uint64_t count = 0;
    [[maybe_unused]] auto read = ::read(eventDescriptor, &count, sizeof count);
}

// The push's own alert, for a push whose extension delivered nothing that counts.
tool::DeliveredContent alertOf(const std::string& userInfoJSON)
{
    AnyValue userInfo;
    try {
        userInfo = JSONSerialization::jsonObject(userInfoJSON);
    } catch (const CocoaError&) {
        // Checked when it was accepted; a queue changed by hand has no alert.
    }
    const auto alert = FeXOPushAlert::of(userInfo);
    return {alert.title, alert.body, false, std::nullopt};
}

} // namespace

NotificationAgent::NotificationAgent(std::unique_ptr<sdbus::IConnection> connection, const ExtensionRunner& runner,
                                     QueueDatabase& queue, AgentSettings settings)
    : settings_(std::move(settings)), connection_(std::move(connection)), queue_(queue), runner_(runner)
{
    wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    inboxWake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0 || inboxWake_ < 0) throw std::runtime_error("cannot make an eventfd");

    auto bus = sdbus::createProxy(*connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    bus->callMethod("GetId").onInterface("org.freedesktop.DBus").storeResultsTo(busId_);

    DesktopNotifications::Events events;
    events.actionInvoked = [this](std::uint32_t id, const std::string& action) { clicked(id, action); };
    events.activationToken = [this](std::uint32_t id, const std::string& token) {
        tokens_[id] = token;
        if (tokens_.size() > maximumTokens) tokens_.erase(tokens_.begin());
    };
    events.closed = [this](std::uint32_t id) {
        // Dismissed, expired or withdrawn: the record stays as it is, only the link goes.
        queue_.forgetShown(desktop_->owner(), id);
        tokens_.erase(id);
    };
    events.ownerChanged = [this](const std::string& owner) { ownerChanged(owner); };
    desktop_ = std::make_unique<DesktopNotifications>(*connection_, std::move(events));
    scopes_ = std::make_unique<AppScopes>(*connection_);

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
    // A caller that activated the agent has its Push queued until the name is taken; it is
    // answered only once run() dispatches, after what the queue held is taken up.
    try {
        connection_->requestName(agentBusName);
    } catch (const sdbus::Error& error) {
        if (error.getMessage().find("File exists") != std::string::npos ||
            error.getName().find("EEXIST") != std::string::npos)
            throw NameTaken("another agent already serves this user on this session bus (it owns " +
                            std::string(agentBusName) + ")");
        throw;
    }

    inbox_ = InboxLink::open();
    if (!settings_.desktopEntry.empty() && inbox_)
        badge_ = std::make_unique<LauncherBadge>(*connection_, settings_.desktopEntry);
    scheduler_ = std::make_unique<PushScheduler>(
        runner_, queue_, settings_.concurrency,
        [this](QueuedPush push, ExtensionRun run) { finish(std::move(push), std::move(run)); });
    // Daemons number their notifications from 1 again when they restart.
    queue_.forgetShownExcept(desktop_->owner());
    recover();

    if (inbox_) {
        inbox_->observe([this](NotificationCounts counts) {
            {
                std::lock_guard lock(countsMutex_);
                changedCounts_ = counts;
            }
            wake(inboxWake_);
        });
        // Whatever changed while no agent watched: the badge and the notifications still shown.
        if (const auto unread = inbox_->unreadCount()) {
            if (badge_) badge_->publish(*unread);
        }
        followInbox(std::nullopt, true);
    }
}

NotificationAgent::~NotificationAgent()
{
    scheduler_.reset(); // no worker asks the inbox from here on
    inbox_.reset();     // no observation callback from here on
    ::close(wake_);
    ::close(inboxWake_);
}

std::string NotificationAgent::push(const std::string& userInfoJSON)
{
    if (stopping_) throw sdbus::Error(errorName("Stopping"), "the agent is stopping; push again in a moment");
    if (userInfoJSON.size() > maximumPushBytes)
        throw sdbus::Error(errorName("TooLarge"), "the push is more than 65,536 bytes");
    try {
        if (JSONSerialization::jsonObject(userInfoJSON).kind() != AnyValue::Kind::dictionary)
            throw sdbus::Error(errorName("NotJSON"), "the push must be a JSON object (its user-info dictionary)");
    } catch (const CocoaError&) {
        throw sdbus::Error(errorName("NotJSON"), "the push is not JSON");
    }
    if (scheduler_->waiting() >= settings_.queueCapacity)
        throw sdbus::Error(errorName("QueueFull"), "the agent already has " + std::to_string(settings_.queueCapacity) +
                                                       " pushes waiting; try again later");

    char requestId[33];
    std::snprintf(requestId, sizeof requestId, "%016llx%016llx", static_cast<unsigned long long>(random_()),
                  static_cast<unsigned long long>(random_()));
    QueuedPush push;
    push.requestId = requestId;
    push.userInfoJSON = userInfoJSON;
    push.caller = object_->getCurrentlyProcessedMessage()->getSender();
    push.busId = busId_;
    push.taken = std::chrono::steady_clock::now();
    if (!queue_.accept(push))
        throw sdbus::Error(errorName("NotKept"), "the agent cannot keep the push in its queue " + queue_.path());
    scheduler_->add(std::move(push));
    return requestId;
}

void NotificationAgent::recover()
{
    auto pending = queue_.pending();
    if (pending.empty()) return;
    // Delivered goes to a caller only while it is on the bus it called on: unique names are
    // reused by another bus, and the signal carries the push's text.
    auto bus = sdbus::createProxy(*connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    std::map<std::string, bool> present;
    std::size_t run = 0, shown = 0;
    for (auto& push : pending) {
        push.taken = std::chrono::steady_clock::now();
        if (push.busId != busId_) push.caller.clear();
        if (!push.caller.empty() && present.find(push.caller) == present.end()) {
            bool has = false;
            try {
                bus->callMethod("NameHasOwner")
                    .onInterface("org.freedesktop.DBus")
                    .withArguments(push.caller)
                    .storeResultsTo(has);
            } catch (const sdbus::Error&) {
            }
            present[push.caller] = has;
        }
        if (!push.caller.empty() && !present[push.caller]) push.caller.clear();

        switch (push.state) {
        case QueuedPush::State::accepted:
            ++run;
            scheduler_->add(std::move(push));
            break;
        case QueuedPush::State::running: {
            // The server hands its content out once: a second run would take another push's.
            if (push.group) push.group->killIfLeft();
            push.content = alertOf(push.userInfoJSON);
            push.state = QueuedPush::State::contentKnown;
            queue_.markContentKnown(push.sequence, push.content);
            ++shown;
            show(std::move(push), "its own alert (its extension was running when the agent stopped)");
            break;
        }
        case QueuedPush::State::contentKnown:
            ++shown;
            show(std::move(push), std::string(push.content.rewritten ? "content of the extension" : "its own alert") +
                                      " (known before the agent stopped)");
            break;
        }
    }
    std::cerr << "fexo-agent: taking up " << pending.size() << " pushes from " << queue_.path() << ": " << run
              << " to run, " << shown << " to show" << std::endl;
}

tool::DeliveredContent NotificationAgent::decide(const QueuedPush& push, const ExtensionRun& run)
{
    if (!run.content) return alertOf(push.userInfoJSON);
    tool::DeliveredContent content = *run.content;
    if (!content.id) return content; // valid without a record: shown, linked to none
    const auto carries = inbox_ ? inbox_->carriesNotification(*content.id) : std::nullopt;
    if (carries == false) return alertOf(push.userInfoJSON); // a refusal, or a record that is not there
    if (!carries) content.id.reset();                        // cannot be looked up: shown, not linked
    return content;
}

void NotificationAgent::finish(QueuedPush push, ExtensionRun run)
{
    push.content = decide(push, run);
    push.state = QueuedPush::State::contentKnown;
    queue_.markContentKnown(push.sequence, push.content);
    std::string how = std::string(push.content.rewritten ? "content of the extension" : "its own alert") +
                      " (extension " + run.ending + ")";
    {
        std::lock_guard lock(finishedMutex_);
        finished_.push_back({std::move(push), std::move(how)});
    }
    wake(wake_);
}

void NotificationAgent::showFinished()
{
    drain(wake_);
    std::vector<Finished> finished;
    {
        std::lock_guard lock(finishedMutex_);
        finished.swap(finished_);
    }
    for (auto& one : finished) show(std::move(one.push), std::move(one.how));
}

void NotificationAgent::show(QueuedPush push, std::string how)
{
    NotificationRequest request{settings_.appName, settings_.icon, push.content.title, push.content.body,
                                settings_.desktopEntry};
    desktop_->show(std::move(request), [this, push = std::move(push),
                                        how = std::move(how)](const NotificationOutcome& outcome) mutable {
        std::string result;
        switch (outcome.kind) {
        case NotificationOutcome::Kind::shown:
            queue_.markShown(push.sequence, {outcome.notification, outcome.owner, push.content.id, push.requestId});
            result = "shown as notification " + std::to_string(outcome.notification);
            break;
        case NotificationOutcome::Kind::noDesktop:
            result = "not shown yet: no notification service (" + outcome.error + "); shown when one starts";
            break;
        case NotificationOutcome::Kind::refused:
            queue_.remove(push.sequence);
            result = "not shown: " + outcome.error;
            break;
        }
        std::cerr << "fexo-agent: push " << push.requestId << ": " << how << ", " << result << ", "
                  << millisecondsSince(push.taken) << " ms" << std::endl;
        signalDelivered(push);
        if (outcome.kind == NotificationOutcome::Kind::noDesktop) waitingForDesktop_.push_back(std::move(push));
    });
}

void NotificationAgent::signalDelivered(QueuedPush& push)
{
    if (push.signalled) return;
    push.signalled = true;
    if (push.caller.empty()) return;
    auto signal = object_->createSignal(agentInterface, "Delivered");
    signal.setDestination(push.caller); // the caller only: the signal carries the push's text
    signal << push.requestId << plainText(push.content.title, false) << plainText(push.content.body, true)
           << push.content.rewritten;
    try {
        object_->emitSignal(signal);
    } catch (const sdbus::Error&) {
        // The caller is gone; nothing else listens.
    }
    queue_.markSignalled(push.sequence); // only a push still waiting for a desktop is left to mark
}

void NotificationAgent::ownerChanged(const std::string& owner)
{
    queue_.forgetShownExcept(owner);
    tokens_.clear();
    if (owner.empty()) return;
    auto waiting = std::move(waitingForDesktop_);
    waitingForDesktop_.clear();
    for (auto& push : waiting) show(std::move(push), "shown once a notification service started");
}

void NotificationAgent::clicked(std::uint32_t notification, const std::string& action)
{
    if (action != DesktopNotifications::defaultAction && action != DesktopNotifications::openAction) return;
    const auto shown = queue_.shown(desktop_->owner(), notification);
    if (!shown) return; // another application's notification, or one forgotten
    std::optional<std::string> token;
    if (const auto found = tokens_.find(notification); found != tokens_.end()) {
        token = found->second;
        tokens_.erase(found);
    }
    open(*shown, token);
}

void NotificationAgent::open(const ShownNotification& shown, const std::optional<std::string>& token)
{
    if (inbox_ && shown.recordId) inbox_->markRead(*shown.recordId);
    std::map<std::string, std::string> environment{{"FEXO_REQUEST_ID", shown.requestId}};
    if (shown.recordId) environment["FEXO_RECORD_ID"] = *shown.recordId;
    if (token) {
        environment["XDG_ACTIVATION_TOKEN"] = *token;
        environment["DESKTOP_STARTUP_ID"] = *token;
    }
    std::cerr << "fexo-agent: push " << shown.requestId << ": clicked"
              << (shown.recordId && inbox_ ? ", its record marked read" : "") << std::endl;
    if (!settings_.hostCommand.empty()) {
        std::string failure;
        const pid_t started =
            startDetached({"/bin/sh", "-c", settings_.hostCommand}, environment, clickVariables, "", failure);
        if (started < 0) {
            std::cerr << "fexo-agent: cannot run the host command: " << failure << std::endl;
            return;
        }
        scopes_->adopt(started, settings_.desktopEntry.empty() ? "host" : settings_.desktopEntry);
    } else if (!settings_.desktopEntry.empty()) {
        openDesktopEntry(environment, token);
    }
}

void NotificationAgent::openDesktopEntry(const std::map<std::string, std::string>& environment,
                                         const std::optional<std::string>& token)
{
    std::string reason;
    const auto entry = DesktopEntry::find(settings_.desktopEntry, reason);
    if (!entry) {
        std::cerr << "fexo-agent: cannot open the app: " << reason << std::endl;
        return;
    }
    if (entry->dbusActivatable()) {
        // A proxy goes with its call; the few latest are kept, long answered when they go.
        if (activations_.size() >= 8) activations_.erase(activations_.begin());
        auto& proxy = activations_.emplace_back(sdbus::createProxy(*connection_, entry->id(), entry->objectPath()));
        std::map<std::string, sdbus::Variant> platformData;
        if (token) {
            platformData.emplace("activation-token", sdbus::Variant(*token));
            platformData.emplace("desktop-startup-id", sdbus::Variant(*token));
        }
        auto call = proxy->createMethodCall("org.freedesktop.Application", "Activate");
        call << platformData;
        const auto id = entry->id();
        try {
            proxy->callMethod(
                call,
                [id](sdbus::MethodReply&, const sdbus::Error* error) {
                    if (error != nullptr)
                        std::cerr << "fexo-agent: cannot open the app " << id << ": " << error->getName() << std::endl;
                },
                std::chrono::seconds(25));
        } catch (const sdbus::Error& error) {
            std::cerr << "fexo-agent: cannot open the app " << id << ": " << error.getName() << std::endl;
        }
        return;
    }
    const auto command = entry->commandLine(reason);
    if (!command) {
        std::cerr << "fexo-agent: cannot open the app: " << reason << std::endl;
        return;
    }
    auto launched = environment;
    launched["GIO_LAUNCHED_DESKTOP_FILE"] = entry->file().string();
    std::string failure;
    const pid_t started = startDetached(*command, launched, clickVariables, entry->workingDirectory(), failure);
    if (started < 0) {
        std::cerr << "fexo-agent: cannot open the app: " << failure << std::endl;
        return;
    }
    scopes_->adopt(started, entry->id());
}

void NotificationAgent::inboxChanged()
{
    drain(inboxWake_);
    std::optional<NotificationCounts> counts;
    {
        std::lock_guard lock(countsMutex_);
        counts.swap(changedCounts_);
    }
    if (!counts) return;
    if (badge_) badge_->publish(counts->unread);
    // Records only added, all of them unread, change no record that is shown: the common case
    // (each push stored by the extension) reads nothing. Any other change reads the records
    // behind what is shown. Several changes folded into one call can look like additions alone
    // only when unread records were deleted in the same instant; their notifications go with
    // the next change.
    const bool onlyAdded = followedCounts_ && counts->total > followedCounts_->total &&
                           counts->total - followedCounts_->total == counts->unread - followedCounts_->unread;
    followInbox(*counts, !onlyAdded);
}

void NotificationAgent::followInbox(std::optional<NotificationCounts> counts, bool readRecords)
{
    if (counts) followedCounts_ = counts;
    if (!readRecords || !inbox_) return;
    // With no record left (a logout, deleteAllNotifications) every notification goes, those
    // linked to no record too.
    const bool noneLeft = counts && counts->total == 0;
    const std::string& owner = desktop_->owner();
    for (const auto& shown : queue_.allShown()) {
        if (shown.owner != owner) continue;
        if (!noneLeft && !(shown.recordId && inbox_->readOrGone(*shown.recordId) == true)) continue;
        desktop_->withdraw(shown.notification);
        queue_.forgetShown(shown.owner, shown.notification);
        std::cerr << "fexo-agent: push " << shown.requestId << ": notification " << shown.notification << " withdrawn, "
                  << (noneLeft ? "no record is left" : "its record was read or deleted") << std::endl;
    }
}

bool NotificationAgent::settled() const
{
    if (scheduler_->running() > 0 || desktop_->unanswered() > 0) return false;
    std::lock_guard lock(finishedMutex_);
    return finished_.empty();
}

int NotificationAgent::run()
{
    sigset_t stop;
    ::sigemptyset(&stop);
    ::sigaddset(&stop, SIGTERM);
    ::sigaddset(&stop, SIGINT);
    const int stopped = ::signalfd(-1, &stop, SFD_CLOEXEC | SFD_NONBLOCK);
    std::optional<std::chrono::steady_clock::time_point> deadline;
    int status = 0;
    for (;;) {
        try {
            while (connection_->processPendingRequest()) { }
        } catch (const sdbus::Error& error) {
            std::cerr << "fexo-agent: lost the session bus: " << error.getMessage() << std::endl;
            status = 1;
            break;
        }
        if (deadline && settled()) break;
        const auto bus = connection_->getEventLoopPollData();
        int timeout = -1;
        if (const auto relative = bus.getRelativeTimeout())
            timeout = static_cast<int>((relative->count() + 999) / 1000);
        if (deadline) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                *deadline - std::chrono::steady_clock::now() + std::chrono::milliseconds(1));
            if (left.count() <= 0) break;
            timeout = timeout < 0 ? static_cast<int>(left.count()) : std::min(timeout, static_cast<int>(left.count()));
        }
        pollfd watched[4] = {
            {bus.fd, bus.events, 0}, {wake_, POLLIN, 0}, {inboxWake_, POLLIN, 0}, {stopped, POLLIN, 0}};
        if (::poll(watched, 4, timeout) < 0 && errno != EINTR) {
            std::cerr << "fexo-agent: poll failed: " << std::strerror(errno) << std::endl;
            status = 1;
            break;
        }
        if (watched[3].revents != 0 && !deadline) {
            signalfd_siginfo ignored;
            [[maybe_unused]] auto read = ::read(stopped, &ignored, sizeof ignored);
            stopping_ = true;
            scheduler_->stopTaking();
            deadline = std::chrono::steady_clock::now() + stopGrace;
            std::cerr << "fexo-agent: stopping: no new pushes; running extensions get " << stopGrace.count()
                      << " s; pushes not yet run are run at the next start" << std::endl;
        }
        if (watched[1].revents != 0) showFinished();
        if (watched[2].revents != 0) inboxChanged();
    }
    if (deadline && !settled()) {
        const auto running = scheduler_->running();
        scheduler_->abandon();
        std::cerr << "fexo-agent: stopped with " << running << " extensions killed and " << desktop_->unanswered()
                  << " notifications unanswered; those pushes are shown at the next start" << std::endl;
    }
    ::close(stopped);
    return status;
}

} // namespace fexo::agent
