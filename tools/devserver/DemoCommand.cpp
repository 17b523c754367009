#include <devserver/DevelopmentServerCommands.hpp>
#include <devserver/DevelopmentServer.hpp>
#include <fexo/DevelopmentServerHandOff.hpp>
#include <fexo/ExtensionRoad.hpp>

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>
#include <FeXOPlatform/PropertyList.hpp>

#include <httplib.h>

#include <cstdlib>
#include <filesystem>
#include <future>
#include <iostream>

namespace fexo::tool {

namespace {

constexpr const char* clientId = "demo-client";
constexpr const char* clientSecret = "demo-client-secret-7f3a";

class Demo {
public:
    int run()
    {
        const auto directory = makeTemporaryDirectory();
        if (directory.empty()) {
            fail("cannot make a temporary directory");
            return 1;
        }

        DevelopmentServerOptions serverOptions;
        serverOptions.port = 0;
        serverOptions.clientId = clientId;
        serverOptions.clientSecret = clientSecret;
        serverOptions.closeConnectionsAfterEachAnswer = true;
        server_ = std::make_unique<DevelopmentServer>(serverOptions);
        server_->start();
        step("Development server listening at " + server_->baseURL());

        writeConfiguration(directory);
        const auto outcome = registerDevice() && deliverPush() && readBack();
        server_->stop();
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
        if (!outcome) return 1;
        std::cout << "\ndemo: every step did what it should" << std::endl;
        return 0;
    }

private:
    static std::filesystem::path makeTemporaryDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "fexo-demo-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) return {};
        return pattern;
    }

    void writeConfiguration(const std::filesystem::path& directory)
    {
        const PropertyListValue configuration(PropertyListValue::Dictionary{
            {"FEXO_BASE_URL", server_->baseURL()},
            {"CLIENT_SECRET", clientSecret},
            {"CLIENT_ID", clientId},
            {"APP_GROUP", "group.com.example.fexo.demo"},
            {"BUNDLE_ID", "com.example.fexo.demo"},
        });
        PropertyList::writeFile(configuration, directory / "FeXOService-Info.plist", PropertyList::Format::xml);
        Bundle::main().setResourcesDirectory(directory);
        ::setenv("FEXO_APP_GROUPS_DIR", (directory / "app-groups").c_str(), 1);
        step("Configuration written to " + (directory / "FeXOService-Info.plist").string() +
             "; app-group store under " + (directory / "app-groups").string());
    }

    bool registerDevice()
    {
        step("The app registers the device (FeXOService::registerDevice)");
        auto outcome = std::make_shared<std::promise<Result<RegisterDeviceModel>>>();
        auto answer = outcome->get_future();
        FeXOService().registerDevice("demo-push-token", "demo-device", "", "", "+15550100", PushProvider::FCM,
                                     [outcome](Result<RegisterDeviceModel> r) { outcome->set_value(std::move(r)); });
        if (answer.wait_for(std::chrono::seconds(30)) != std::future_status::ready) return fail("no answer");
        const auto result = answer.get();
        showWire();
        if (result.isFailure()) return fail("registration failed: " + result.error().localizedDescription());
        const std::string json = JSONEncoder{}.encode(result.value());
        if (json != "{}") return fail("the server refused the registration: " + json);
        return ok("registered; the answer carries no errorMessage and no errors");
    }

    bool deliverPush()
    {
        step("The service queues a notification for the device and a push arrives");
        httplib::Client client(server_->baseURL());
        const httplib::Headers headers{{"client_id", clientId}, {"client_secret", clientSecret}};
        const auto queued = client.Post("/dev/notifications", headers,
                                        R"({"recipientId":"demo-device","text":"Your parcel is on its way","sender":"FeXO Post"})",
                                        "application/json");
        if (!queued || queued->status != 200) return fail("the development server did not queue the notification");
        showWire();

        step("The extension handles the push (FeXONotificationExtensionHandler::handleNotification)");
        const auto content = runExtensionRoad(JSONSerialization::jsonObject(queued->body), std::chrono::seconds(30));
        showWire();
        std::cout << "   delivered: " << deliveredContentJSON(content) << '\n';
        if (!content.rewritten || content.title != "FeXO Post" || content.body != "Your parcel is on its way") {
            return fail("the content was not rewritten from the server's record");
        }
        return ok("title and body rewritten from the server's record");
    }

    bool readBack()
    {
        FeXOService service;
        step("The app lists the stored notifications (fetchAllNotifications)");
        auto all = service.fetchAllNotifications().value_or(std::vector<Response>{});
        for (const auto& record : all) std::cout << "   " << JSONEncoder{}.encode(record) << '\n';
        if (all.size() != 1 || !all[0].id) return fail("expected one stored record with an id");
        const std::string id = *all[0].id;

        step("The app marks it as read (markNotificationAsRead)");
        service.markNotificationAsRead(id);
        const auto marked = service.fetchNotification(id);
        if (!marked || marked->isRead != true) return fail("the record is not marked as read");
        std::cout << "   " << JSONEncoder{}.encode(*marked) << '\n';

        step("The user logs out (logout)");
        service.logout();
        if (!service.fetchAllNotifications().value_or(std::vector<Response>{}).empty()) {
            return fail("records are left after logout");
        }
        return ok("the store holds no notification any more");
    }

    // Prints the exchanges the server answered since the last call.
    void showWire()
    {
        const auto exchanges = server_->exchanges();
        for (std::size_t i = shown_; i < exchanges.size(); ++i) {
            const auto& e = exchanges[i];
            std::cout << "   -> " << e.method << " " << e.path;
            for (const auto& [name, value] : e.requestHeaders) std::cout << "  " << name << ": " << value;
            std::cout << "\n      " << (e.requestBody.empty() ? "(no body)" : e.requestBody) << "\n   <- " << e.status
                      << " " << e.responseBody << '\n';
        }
        shown_ = exchanges.size();
    }

    void step(const std::string& text) { std::cout << "\n== " << text << '\n'; }

    bool ok(const std::string& text)
    {
        std::cout << "   ok: " << text << std::endl;
        return true;
    }

    bool fail(const std::string& text)
    {
        std::cout << std::flush;
        std::cerr << "fexo demo: " << text << std::endl;
        return false;
    }

    std::unique_ptr<DevelopmentServer> server_;
    std::size_t shown_ = 0;
};

} // namespace

void addDemoCommand(CLI::App& app, const ToolOptions&, int& exitCode)
{
    app.add_subcommand("demo", demoDescription)->callback([&exitCode] { exitCode = Demo().run(); });
}

} // namespace fexo::tool
