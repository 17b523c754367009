#include <agent/DesktopNotifications.hpp>

#include <agent/NotificationText.hpp>

#include <sdbus-c++/sdbus-c++.h>

#include <iostream>
#include <map>
#include <vector>

namespace fexo::agent {

namespace {

constexpr const char* daemonName = "org.freedesktop.Notifications";
constexpr const char* daemonPath = "/org/freedesktop/Notifications";
// A daemon that does not answer in this time is taken as absent for that call.
constexpr std::chrono::seconds answerTimeLimit{5};

bool meansNoDesktop(const std::string& error)
{
    return error == "org.freedesktop.DBus.Error.ServiceUnknown" ||
           error == "org.freedesktop.DBus.Error.NameHasNoOwner" ||
           error == "org.freedesktop.DBus.Error.Spawn.ChildExited" ||
           error == "org.freedesktop.DBus.Error.Spawn.ExecFailed";
}

} // namespace

DesktopNotifications::DesktopNotifications(sdbus::IConnection& connection, Events events) : events_(std::move(events))
{
    // Before the first question about the owner, so that no change between the two is missed.
    ownerWatch_ =
        connection.addMatch(std::string("type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                                        "member='NameOwnerChanged',arg0='") +
                                daemonName + "'",
                            [this](sdbus::Message& message) {
                                std::string name, previous, next;
                                message >> name >> previous >> next;
                                if (name == daemonName && next != owner_) setOwner(next);
                            });
    daemon_ = sdbus::createProxy(connection, daemonName, daemonPath);
    daemon_->registerSignalHandler(daemonName, "ActionInvoked", [this](sdbus::Signal& signal) {
        if (!fromOwner(signal.getSender())) return;
        std::uint32_t notification = 0;
        std::string action;
        signal >> notification >> action;
        if (events_.actionInvoked) events_.actionInvoked(notification, action);
    });
    daemon_->registerSignalHandler(daemonName, "ActivationToken", [this](sdbus::Signal& signal) {
        if (!fromOwner(signal.getSender())) return;
        std::uint32_t notification = 0;
        std::string token;
        signal >> notification >> token;
        if (events_.activationToken) events_.activationToken(notification, token);
    });
    daemon_->registerSignalHandler(daemonName, "NotificationClosed", [this](sdbus::Signal& signal) {
        if (!fromOwner(signal.getSender())) return;
        std::uint32_t notification = 0, reason = 0;
        signal >> notification >> reason;
        if (events_.closed) events_.closed(notification);
    });
    daemon_->finishRegistration();

    auto bus = sdbus::createProxy(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    try {
        bus->callMethod("GetNameOwner")
            .onInterface("org.freedesktop.DBus")
            .withArguments(std::string(daemonName))
            .storeResultsTo(owner_);
    } catch (const sdbus::Error&) {
        owner_.clear(); // nothing owns it (yet): a call may still start one by activation
    }
    if (!owner_.empty()) askCapabilities();
}

DesktopNotifications::~DesktopNotifications() = default;

void DesktopNotifications::setOwner(const std::string& owner)
{
    owner_ = owner;
    if (events_.ownerChanged) events_.ownerChanged(owner_);
    if (!owner_.empty() && capabilitiesOwner_ != owner_ && !askingCapabilities_) askCapabilities();
}

void DesktopNotifications::askCapabilities()
{
    askingCapabilities_ = true;
    ++unanswered_;
    auto call = daemon_->createMethodCall(daemonName, "GetCapabilities");
    const auto answered = [this](sdbus::MethodReply& reply, const sdbus::Error* error) {
        --unanswered_;
        askingCapabilities_ = false;
        std::vector<std::string> capabilities;
        if (error == nullptr) reply >> capabilities;
        const std::string sender = error == nullptr ? reply.getSender() : owner_;
        if (error != nullptr && meansNoDesktop(error->getName())) {
            // Nothing to show on: every waiting notification says so.
            auto waiting = std::move(waiting_);
            waiting_.clear();
            for (auto& one : waiting) one.done({NotificationOutcome::Kind::noDesktop, 0, {}, error->getName()});
            return;
        }
        if (!owner_.empty() && sender != owner_) {
            askCapabilities(); // the owner changed while the question was out: ask the new one
            return;
        }
        // A daemon that does not say what it can gets plain text and the default action only.
        capabilitiesOwner_ = sender;
        capabilities_ = std::set<std::string>(capabilities.begin(), capabilities.end());
        auto waiting = std::move(waiting_);
        waiting_.clear();
        for (auto& one : waiting) notify(std::move(one));
    };
    try {
        daemon_->callMethod(call, answered, answerTimeLimit);
    } catch (const sdbus::Error& error) {
        sdbus::MethodReply none;
        answered(none, &error);
    }
}

void DesktopNotifications::show(NotificationRequest request, std::function<void(const NotificationOutcome&)> done)
{
    Waiting waiting{std::move(request), std::move(done)};
    const bool known = capabilitiesOwner_ && (owner_.empty() || *capabilitiesOwner_ == owner_);
    if (known && !askingCapabilities_) {
        notify(std::move(waiting));
        return;
    }
    waiting_.push_back(std::move(waiting));
    if (!askingCapabilities_) askCapabilities();
}

void DesktopNotifications::notify(Waiting waiting)
{
    const auto& request = waiting.request;
    const std::string title = plainText(request.title, false);
    std::string body = plainText(request.body, true);
    if (capabilities_.count("body-markup") > 0) body = escapedMarkup(body);
    std::vector<std::string> actions{defaultAction, "Open"};
    if (capabilities_.count("actions") > 0) actions.insert(actions.end(), {openAction, "Open"});
    std::map<std::string, sdbus::Variant> hints{{"urgency", sdbus::Variant(std::uint8_t{1})}};
    if (!request.desktopEntry.empty()) hints.emplace("desktop-entry", sdbus::Variant(request.desktopEntry));

    ++unanswered_;
    auto call = daemon_->createMethodCall(daemonName, "Notify");
    call << request.appName << std::uint32_t{0} << request.icon << title << body << actions << hints
         << std::int32_t{-1};
    auto done = std::make_shared<std::function<void(const NotificationOutcome&)>>(std::move(waiting.done));
    auto answered = [this, done](sdbus::MethodReply& reply, const sdbus::Error* error) {
        --unanswered_;
        NotificationOutcome outcome;
        if (error == nullptr) {
            outcome.kind = NotificationOutcome::Kind::shown;
            reply >> outcome.notification;
            outcome.owner = reply.getSender();
        } else {
            outcome.kind = meansNoDesktop(error->getName()) ? NotificationOutcome::Kind::noDesktop
                                                            : NotificationOutcome::Kind::refused;
            outcome.error = error->getName();
        }
        (*done)(outcome);
    };
    try {
        daemon_->callMethod(call, std::move(answered), answerTimeLimit);
    } catch (const sdbus::Error& error) {
        --unanswered_;
        (*done)({NotificationOutcome::Kind::refused, 0, {}, error.getName()});
    }
}

void DesktopNotifications::withdraw(std::uint32_t notification)
{
    if (owner_.empty()) return;
    auto call = daemon_->createMethodCall(daemonName, "CloseNotification");
    call << notification;
    try {
        // No answer is awaited: a notification already gone is no failure.
        daemon_->callMethod(
            call, [](sdbus::MethodReply&, const sdbus::Error*) {}, answerTimeLimit);
    } catch (const sdbus::Error& error) {
        std::cerr << "fexo-agent: cannot withdraw notification " << notification << ": " << error.getName()
                  << std::endl;
    }
}

} // namespace fexo::agent
