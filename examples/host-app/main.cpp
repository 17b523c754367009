// A host app: registers this device for pushes, then shows and marks as read the
// notifications that its notification extension stored.
//
//   host-app PUSH_TOKEN DEVICE_ID
//
// FeXOService-Info.plist is read from $FEXO_RESOURCES_DIR, else beside the executable.
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <chrono>
#include <future>
#include <iostream>
#include <memory>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: host-app PUSH_TOKEN DEVICE_ID\n";
        return 64;
    }
    fexo::FeXOService service;

    // The completion runs on the URL session's thread; hand the outcome back to this one.
    // The promise is shared so that a late completion never outlives it.
    auto registered = std::make_shared<std::promise<fexo::Result<fexo::RegisterDeviceModel>>>();
    auto outcome = registered->get_future();
    service.registerDevice(argv[1], argv[2], "", "", "", fexo::PushProvider::FCM,
                           [registered](fexo::Result<fexo::RegisterDeviceModel> result) {
                               registered->set_value(std::move(result));
                           });
    if (outcome.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        std::cerr << "host-app: the server did not answer\n";
        return 1;
    }
    const auto result = outcome.get();
    if (result.isFailure()) {
        std::cerr << "host-app: " << result.error().localizedDescription() << '\n';
        return 1;
    }
    // The answer is opaque; its JSON says whether the server accepted the registration.
    std::cout << "registered: " << fexo::JSONEncoder{}.encode(result.value()) << '\n';

    const auto notifications = service.fetchAllNotifications().value_or(std::vector<fexo::Response>{});
    std::cout << notifications.size() << " stored notification(s)\n";
    for (const auto& notification : notifications) {
        const auto sender = notification.data ? notification.data->sender.value_or("") : "";
        const auto text = notification.data ? notification.data->text.value_or("") : "";
        std::cout << (notification.isRead.value_or(false) ? "  read    " : "  unread  ") << sender << ": " << text
                  << '\n';
        if (notification.id) service.markNotificationAsRead(*notification.id);
    }
    return 0;
}
