// A host app: registers this device for pushes, then lists the notifications that its
// notification extension stored and marks each as read.
//
//   host-app PUSH_TOKEN DEVICE_ID [RESOURCES_DIR]
//
// FeXOService-Info.plist is read from RESOURCES_DIR when given, else from $FEXO_RESOURCES_DIR,
// else from beside the executable.
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <chrono>
#include <future>
#include <iostream>
#include <memory>

int main(int argc, char** argv)
{
    if (argc != 3 && argc != 4) {
        std::cerr << "usage: host-app PUSH_TOKEN DEVICE_ID [RESOURCES_DIR]\n";
        return 64;
    }
    if (argc == 4) fexo::Bundle::main().setResourcesDirectory(argv[3]);
    const std::string token = argv[1], deviceID = argv[2];

    fexo::FeXOService service; // reads nothing, opens nothing
    // The completion runs on the URL session's thread, never inside registerDevice: hand the
    // outcome back to this thread. The promise is shared so that it outlives a late completion.
    auto registered = std::make_shared<std::promise<fexo::Result<fexo::RegisterDeviceModel>>>();
    auto outcome = registered->get_future();
    service.registerDevice(
        token, deviceID, "", "", "", fexo::PushProvider::FCM,
        [registered](fexo::Result<fexo::RegisterDeviceModel> result) { registered->set_value(std::move(result)); });
    if (outcome.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        std::cerr << "host-app: the server did not answer\n";
        return 1;
    }
    const fexo::Result<fexo::RegisterDeviceModel> result = outcome.get();
    if (result.isFailure()) {
        std::cerr << "host-app: " << result.error().localizedDescription() << '\n';
        return 1;
    }
    // The answer has no public fields: its JSON carries the server's errorMessage and errors.
    std::cout << "registered: " << fexo::JSONEncoder{}.encode(result.value()) << '\n';

    // Local operations run synchronously on this thread; the records come in no promised order.
    const std::vector<fexo::Response> all = service.fetchAllNotifications().value_or(std::vector<fexo::Response>{});
    std::cout << all.size() << " stored notification(s)\n";
    for (const fexo::Response& record : all) {
        const std::string sender = record.data ? record.data->sender.value_or("") : "";
        const std::string text = record.data ? record.data->text.value_or("") : "";
        std::cout << (record.isRead.value_or(false) ? "  read    " : "  unread  ") << sender << ": " << text << '\n';
        if (record.id) service.markNotificationAsRead(*record.id); // prints "Item Not Found!" when gone
    }
    return 0;
}
