#include <common/ExtensionRoad.hpp>

#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <nlohmann/json.hpp>

#include <condition_variable>
#include <mutex>
#include <optional>

namespace fexo::tool {

namespace {

// The one content that leaves the extension: the first delivery wins, later ones are dropped.
class Delivery {
public:
    bool deliver(DeliveredContent content)
    {
        std::lock_guard lock(mutex_);
        if (content_) return false;
        content_ = std::move(content);
        delivered_.notify_all();
        return true;
    }

    std::optional<DeliveredContent> waitUntil(std::chrono::steady_clock::time_point deadline)
    {
        std::unique_lock lock(mutex_);
        delivered_.wait_until(lock, deadline, [&] { return content_.has_value(); });
        return content_;
    }

private:
    std::mutex mutex_;
    std::condition_variable delivered_;
    std::optional<DeliveredContent> content_;
};

} // namespace

DeliveredContent runExtensionRoad(const AnyValue& userInfo, const DeliveredContent& original,
                                  std::chrono::milliseconds timeLimit)
{
    const auto deadline = std::chrono::steady_clock::now() + timeLimit;
    const UNNotificationRequest request(
        "fexo-handle-push", std::make_shared<UNNotificationContent>(original.title, original.body, userInfo));
    // Shared with the content handler, which may outlive this call when the time limit passes.
    auto delivery = std::make_shared<Delivery>();

    FeXONotificationExtensionHandler().handleNotification(
        request, [delivery](std::shared_ptr<UNMutableNotificationContent> content) {
            delivery->deliver({content->title(), content->body(), true});
        });

    // The content handler runs inside the session's completion, so once the session is idle
    // it has either run or never will.
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    URLSession::shared().waitUntilIdle(std::max(left, std::chrono::milliseconds(0)));
    if (auto content = delivery->waitUntil(std::chrono::steady_clock::now())) return *content;
    delivery->deliver(original);
    return *delivery->waitUntil(std::chrono::steady_clock::now());
}

} // namespace fexo::tool
