// The names a host app meets beyond the other examples, each used once against the installed
// package: configuration lookup and the raise hook, the facade's local operations on a record,
// results and errors. Needs no server.
//
//   public-names RESOURCES_DIR   (a directory holding FeXOService-Info.plist)
//
// Exit status 0 when every operation did what it promises.
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/Date.hpp>
#include <FeXOPlatform/NSException.hpp>
#include <FeXOPlatform/URLError.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <chrono>
#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: public-names RESOURCES_DIR\n";
        return 64;
    }
    // A missing configuration file or key is raised through this hook, on the raising thread.
    fexo::NSException::setRaiseHook([](const fexo::NSException& exception) {
        std::cerr << exception.name() << ": " << exception.reason() << '\n';
        throw exception;
    });
    fexo::Bundle::main().setResourcesDirectory(argv[1]);

    fexo::FeXOService service;
    service.write(
        fexo::Response(fexo::Date::now(), fexo::NotificationData("Hello", "Ann"), std::nullopt, std::nullopt, "7"));
    service.markNotificationAsRead("7"); // prints "Item Not Found!" when there is none
    std::optional<fexo::Response> one = service.fetchNotification("7");
    std::optional<std::vector<fexo::Response>> all = service.fetchAllNotifications(); // unordered
    service.deleteNotification("7");
    std::optional<fexo::Response> deleted = service.fetchNotification("7");
    if (one) service.write(*one);
    service.deleteAllNotifications();
    std::optional<std::vector<fexo::Response>> none = service.fetchAllNotifications();
    service.logout(); // deletes every record; the device stays registered
    bool ok = one && one->isRead == true && one->data && one->data->sender == "Ann" && all->size() == 1 && !deleted &&
              none->empty();

    // Completions receive a Result: a value, or an error whose concrete kind can be recovered.
    const auto failed =
        fexo::Result<fexo::RegisterDeviceModel>::failure(fexo::URLError(fexo::URLError::timedOut, std::nullopt));
    const fexo::URLError* timeout = failed.error().as<fexo::URLError>();
    ok = ok && timeout && timeout->code() == fexo::URLError::timedOut && !failed.error().localizedDescription().empty();
    ok = ok && fexo::URLSession::shared().waitUntilIdle(std::chrono::milliseconds(100));
    std::cout << (ok ? "public names: ok" : "public names: FAILED") << '\n';
    return ok ? 0 : 1;
}
