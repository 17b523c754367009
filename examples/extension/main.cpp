// A notification service extension: the system starts it for one push and shows what it
// delivers. The push's user-info dictionary arrives as JSON on standard input; the content
// delivered is the last line of standard output, {"title":…,"body":…,"rewritten":…}, and the
// exit status is 0 when the library rewrote it, 3 when the push's own alert was delivered.
// FeXOService-Info.plist is read from $FEXO_RESOURCES_DIR, else beside the executable.
#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <nlohmann/json.hpp>

#include <chrono>
#include <iostream>
#include <iterator>
#include <mutex>
#include <optional>

namespace {

// The push's own alert: an object's title and body, or a string alert as the body.
std::pair<std::string, std::string> alertOf(const fexo::AnyValue& userInfo)
{
    const fexo::AnyValue* aps = userInfo["aps"];
    const fexo::AnyValue* alert = aps ? (*aps)["alert"] : nullptr;
    if (alert && alert->string()) return {"", *alert->string()};
    const auto text = [alert](const char* key) {
        const fexo::AnyValue* value = alert ? (*alert)[key] : nullptr;
        return value && value->string() ? *value->string() : std::string();
    };
    return {text("title"), text("body")};
}

// Filled on the URL session's thread; shared so that it outlives main when the time runs out.
struct Delivery {
    std::mutex mutex;
    std::optional<std::pair<std::string, std::string>> rewritten;
};

void deliver(const std::string& title, const std::string& body, bool rewritten)
{
    const nlohmann::ordered_json line = {{"title", title}, {"body", body}, {"rewritten", rewritten}};
    std::cout << line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << std::endl;
}

} // namespace

int main()
{
    const std::string json{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    fexo::AnyValue userInfo;
    try {
        userInfo = fexo::JSONSerialization::jsonObject(json);
    } catch (const fexo::CocoaError& error) {
        std::cerr << "extension: the push is not JSON: " << error.localizedDescription() << '\n';
        return 1;
    }
    const auto [title, body] = alertOf(userInfo);
    const fexo::UNNotificationRequest request("push-1",
                                              std::make_shared<fexo::UNNotificationContent>(title, body, userInfo));
    auto delivery = std::make_shared<Delivery>();
    fexo::FeXONotificationExtensionHandler().handleNotification(
        request, [delivery](std::shared_ptr<fexo::UNMutableNotificationContent> content) {
            // On the URL session's thread; the record is already stored.
            std::lock_guard lock(delivery->mutex);
            delivery->rewritten.emplace(content->title(), content->body());
        });
    // The content handler runs inside the session's completion: once the session is idle it
    // has either run or never will, and the push's own alert is delivered instead.
    fexo::URLSession::shared().waitUntilIdle(std::chrono::seconds(25));
    std::lock_guard lock(delivery->mutex);
    if (delivery->rewritten) {
        deliver(delivery->rewritten->first, delivery->rewritten->second, true);
        return 0;
    }
    deliver(title, body, false);
    return 3;
}
