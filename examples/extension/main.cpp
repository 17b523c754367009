// A notification service extension: the system starts it for one push and shows what it
// hands back. The push's user-info dictionary arrives as JSON on standard input.
//
// FeXOService-Info.plist is read from $FEXO_RESOURCES_DIR, else beside the executable;
// the app group's store is shared with the host app.
#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <chrono>
#include <iostream>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>

namespace {

std::string text(const fexo::AnyValue* value)
{
    return value && value->string() ? *value->string() : std::string();
}

// Shared with the content handler, which may run after main has given up waiting.
struct Delivery {
    std::mutex mutex;
    std::optional<std::pair<std::string, std::string>> rewritten;
};

} // namespace

int main()
{
    const std::string json{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    fexo::AnyValue userInfo;
    try {
        userInfo = fexo::JSONSerialization::jsonObject(json);
    } catch (const fexo::CocoaError&) {
        std::cerr << "extension: the push is not JSON\n";
        return 1;
    }
    const fexo::AnyValue* aps = userInfo["aps"];
    const fexo::AnyValue* alert = aps ? (*aps)["alert"] : nullptr;
    const auto original = std::make_shared<fexo::UNNotificationContent>(
        text(alert ? (*alert)["title"] : nullptr), text(alert ? (*alert)["body"] : nullptr), userInfo);

    // Filled on the URL session's thread when the library delivers the rewritten content.
    auto delivery = std::make_shared<Delivery>();
    fexo::FeXONotificationExtensionHandler().handleNotification(
        fexo::UNNotificationRequest("push-1", original),
        [delivery](std::shared_ptr<fexo::UNMutableNotificationContent> content) {
            std::lock_guard lock(delivery->mutex);
            delivery->rewritten.emplace(content->title(), content->body());
        });

    // The content handler runs inside the session's completion, so once the session is idle
    // it either ran or never will; past the time limit the original is shown.
    fexo::URLSession::shared().waitUntilIdle(std::chrono::seconds(25));
    std::lock_guard lock(delivery->mutex);
    if (delivery->rewritten) {
        std::cout << "show: " << delivery->rewritten->first << " / " << delivery->rewritten->second << '\n';
        return 0;
    }
    std::cout << "show original: " << original->title() << " / " << original->body() << '\n';
    return 3;
}
