// A notification service extension: the system starts it for one push and shows what it
// delivers. The push's user-info dictionary arrives as JSON on standard input; the content
// delivered is the last line of standard output, {"title":…,"body":…,"rewritten":…,"id":…}, and
// the exit status is 0 when the library rewrote it, 3 when the push's own alert was delivered.
// FeXOService-Info.plist is read from $FEXO_RESOURCES_DIR, else beside the executable.
#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>

#include <nlohmann/json.hpp>

#include <chrono>
#include <iostream>
#include <iterator>

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
    const fexo::UNNotificationRequest request("push-1",
                                              std::make_shared<fexo::UNNotificationContent>("", "", userInfo));
    // Waits for this push's request only, at most 25 s; the push's own alert when the library
    // failed, ran out of time, or the server's record carries no notification.
    const auto delivery = fexo::FeXONotificationExtensionHandler().deliver(request, std::chrono::seconds(25));
    nlohmann::ordered_json line = {
        {"title", delivery.content->title()}, {"body", delivery.content->body()}, {"rewritten", delivery.rewritten}};
    line["id"] = delivery.rewritten ? nlohmann::ordered_json(*delivery.recordId) : nlohmann::ordered_json();
    std::cout << line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << std::endl;
    return delivery.rewritten ? 0 : 3;
}
