#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>

#include <FeXONotificationService/DataRepository.hpp>
#include <FeXONotificationService/FeXOPushAlert.hpp>
#include <FeXONotificationService/NetworkingService.hpp>
#include <FeXONotificationService/NotificationContentProvider.hpp>
#include <FeXONotificationService/NotificationRequestInfo.hpp>
#include <FeXONotificationService/Payload.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>
#include <FeXOPlatform/StandardOutput.hpp>
#include <FeXOPlatform/URLSession.hpp>
#include <FeXOPlatform/UUID.hpp>

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace fexo {

namespace {

// How one push's road ended, for whoever waits on it: the content (rewritten on success, with
// the error's description as body on failure) and, on success, the record as stored.
struct RoadEnd {
    std::shared_ptr<UNMutableNotificationContent> content;
    std::optional<Response> stored;
};

// The hand-over between the session's thread, which ends the road, and deliver()'s caller,
// which may have stopped waiting by then.
struct RoadWait {
    std::mutex mutex;
    std::condition_variable ended;
    std::optional<RoadEnd> end;
};

// A wait longer than this is taken as this long: a century, far beyond any extension's life,
// and far enough from the clock's range that adding it to now cannot overflow.
constexpr std::chrono::milliseconds longestWait = std::chrono::hours(24 * 365 * 100);

} // namespace

// The handler's two fields, in their order. The handler adopts the notification-content
// operation through them; each push's completion keeps a copy of them.
struct FeXONotificationExtensionHandler::Collaborators final : NotificationContentProvider {
    Collaborators(DataRepository dataPersistence, std::shared_ptr<const Networking> network)
        : dataPersistence(std::move(dataPersistence)), network_(std::move(network))
    {
    }
    Collaborators(const Collaborators&) = default;
    Collaborators& operator=(const Collaborators&) = default;

    const Networking& network() const override { return *network_; }

    // Runs one push's road. `ended` runs once on the network's callback thread when the request
    // has finished (after the record is stored, on success); false, with nothing started, when
    // the content cannot be copied as mutable content.
    bool run(const UNNotificationRequest& request, std::function<void(RoadEnd)> ended) const;

    DataRepository dataPersistence;

private:
    std::shared_ptr<const Networking> network_;
};

bool FeXONotificationExtensionHandler::Collaborators::run(const UNNotificationRequest& request,
                                                          std::function<void(RoadEnd)> ended) const
{
    auto content = std::dynamic_pointer_cast<UNMutableNotificationContent>(request.content().mutableCopy());
    if (!content) return false;

    std::optional<Payload> payload;
    try {
        const std::string json = JSONSerialization::data(content->userInfo());
        payload = JSONDecoder{}.decode<Payload>(json);
    } catch (const CocoaError& error) {
        printLine(error.description());
    } catch (const DecodingError& error) {
        printLine(error.description());
    }

    NotificationRequestInfo requestInfo(payload ? payload->recipientId.value_or("") : "",
                                        payload ? payload->registration_id.value_or("") : "");
    fetchNotificationContent(std::move(requestInfo), [content = std::move(content), self = *this,
                                                      ended = std::move(ended)](Result<Response> result) mutable {
        if (result.isFailure()) {
            const std::string description = result.error().localizedDescription();
            content->setBody(description);
            printLine("Notifications Content Error" + description);
            ended({std::move(content), std::nullopt});
            return;
        }
        const Response& response = result.value();
        content->setTitle(response.data ? response.data->sender.value_or("") : "");
        content->setBody(response.data ? response.data->text.value_or("") : "");

        Response stored = response;
        stored.id = UUID().uuidString();
        ResponseAccess::createdAt(stored) = Date::now();
        self.dataPersistence.write(stored);

        ended({std::move(content), std::move(stored)});
    });
    return true;
}

FeXONotificationExtensionHandler::FeXONotificationExtensionHandler()
    : collaborators_(std::make_unique<Collaborators>(DataRepository(std::make_shared<UserDefaultsDataStorage>()),
                                                     std::make_shared<NetworkingService>()))
{
}

FeXONotificationExtensionHandler::FeXONotificationExtensionHandler(const FeXONotificationExtensionHandler& other)
    : collaborators_(std::make_unique<Collaborators>(*other.collaborators_))
{
}

FeXONotificationExtensionHandler&
FeXONotificationExtensionHandler::operator=(const FeXONotificationExtensionHandler& other)
{
    if (this != &other) *collaborators_ = *other.collaborators_;
    return *this;
}

FeXONotificationExtensionHandler::~FeXONotificationExtensionHandler() = default;

void FeXONotificationExtensionHandler::handleNotification(const UNNotificationRequest& request,
                                                          ContentHandler contentHandler) const
{
    collaborators_->run(request, [contentHandler = std::move(contentHandler)](RoadEnd end) {
        if (end.stored) contentHandler(std::move(end.content));
    });
}

FeXONotificationExtensionHandler::Delivery
FeXONotificationExtensionHandler::deliver(const UNNotificationRequest& request,
                                          std::chrono::milliseconds timeLimit) const
{
    auto wait = std::make_shared<RoadWait>();
    const bool started = collaborators_->run(request, [wait](RoadEnd end) {
        std::lock_guard lock(wait->mutex);
        wait->end = std::move(end);
        wait->ended.notify_all();
    });

    std::optional<RoadEnd> end;
    if (started && !URLSession::shared().isCurrentThread()) {
        const auto limit = std::clamp(timeLimit, std::chrono::milliseconds(0), longestWait);
        std::unique_lock lock(wait->mutex);
        wait->ended.wait_for(lock, limit, [&] { return wait->end.has_value(); });
        end = std::move(wait->end);
    }

    Delivery delivery;
    if (end && end->stored) {
        delivery.recordId = end->stored->id;
        if (end->stored->carriesNotification()) {
            delivery.content = std::move(end->content);
            delivery.rewritten = true;
            return delivery;
        }
    }
    const FeXOPushAlert alert = FeXOPushAlert::of(request.content().userInfo());
    delivery.content = std::make_shared<UNMutableNotificationContent>(request.content());
    delivery.content->setTitle(alert.title);
    delivery.content->setBody(alert.body);
    return delivery;
}

} // namespace fexo
