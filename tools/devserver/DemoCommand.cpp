#include <devserver/DevelopmentServerCommands.hpp>

#include <common/ConfigurationFile.hpp>
#include <common/ExtensionRoad.hpp>
#include <common/HandedOverCommands.hpp>
#include <common/TerminalText.hpp>
#include <devserver/DevelopmentServer.hpp>

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>

#include <httplib.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>

namespace fexo::tool {

namespace {

constexpr const char* clientId = "demo-client";
constexpr const char* clientSecret = "demo-client-secret-7f3a";

// A program installed (or built) beside this one.
std::filesystem::path siblingProgram(const std::string& name)
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / name;
}

// A tool run as a child for the demo's last steps (`fexo-agent run`, `fexo watch`), with one of
// its outputs on a pipe. Stopped with SIGTERM when it goes.
class AgentProcess {
public:
    AgentProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 int captured = STDERR_FILENO)
    {
        int pipe[2];
        if (::pipe2(pipe, O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipe[1], captured);
        std::vector<std::string> words{program.string()};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        if (::posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) pid_ = 0;
        posix_spawn_file_actions_destroy(&actions);
        ::close(pipe[1]);
        errors_ = pipe[0];
    }
    ~AgentProcess()
    {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
        }
        if (errors_ >= 0) ::close(errors_);
    }
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;

    // Its output up to the end of the first line that holds `until` (or ten seconds, or its end);
    // what follows stays for the next call.
    std::string firstWords(std::string_view until = "serv")
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (;;) {
            const auto found = pending_.find(until);
            const auto end = found == std::string::npos ? std::string::npos
                             : until == "\n"            ? found
                                                        : pending_.find('\n', found);
            if (end != std::string::npos) {
                std::string said = pending_.substr(0, end);
                pending_.erase(0, end + 1);
                return said;
            }
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd ready{errors_, POLLIN, 0};
            char buffer[512];
            ssize_t n = 0;
            if (pid_ <= 0 || left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0 ||
                (n = ::read(errors_, buffer, sizeof buffer)) <= 0) {
                std::string said = std::move(pending_);
                pending_.clear();
                while (!said.empty() && said.back() == '\n') said.pop_back();
                return said;
            }
            pending_.append(buffer, static_cast<std::size_t>(n));
        }
    }
    bool started() const { return pid_ > 0; }

private:
    pid_t pid_ = 0;
    int errors_ = -1;
    std::string pending_;
};

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

        const auto outcome = writeConfiguration(directory) && registerDevice() && deliverPush() && readBack() &&
                             showThroughAgent(directory) && showArrivalInWatch(directory);
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

    bool writeConfiguration(const std::filesystem::path& directory)
    {
        const auto file = directory / "FeXOService-Info.plist";
        if (!writeConfigurationFile(directory, {.baseURL = server_->baseURL(),
                                                .clientSecret = clientSecret,
                                                .clientId = clientId,
                                                .appGroup = "group.com.example.fexo.demo",
                                                .bundleId = "com.example.fexo.demo"})) {
            return fail("cannot write " + file.string());
        }
        Bundle::main().setResourcesDirectory(directory);
        ::setenv("FEXO_APP_GROUPS_DIR", (directory / "app-groups").c_str(), 1);
        step("Configuration written to " + file.string() + "; app-group store under " +
             (directory / "app-groups").string());
        return true;
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
        const auto push = queuePush("Your parcel is on its way", "FeXO Post");
        if (!push) return fail("the development server did not queue the notification");
        showWire();

        step("The extension handles the push (FeXONotificationExtensionHandler::deliver)");
        const auto content =
            tool::shownContent(tool::deliverPush(JSONSerialization::jsonObject(*push), std::chrono::seconds(30)));
        showWire();
        writeTerminalLine(std::cout, "   delivered: " + deliveredContentJSON(content));
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
        for (const auto& record : all) writeTerminalLine(std::cout, "   " + JSONEncoder{}.encode(record));
        if (all.size() != 1 || !all[0].id) return fail("expected one stored record with an id");
        const std::string id = *all[0].id;

        step("The app marks it as read (markNotificationAsRead)");
        service.markNotificationAsRead(id);
        const auto marked = service.fetchNotification(id);
        if (!marked || marked->isRead != true) return fail("the record is not marked as read");
        writeTerminalLine(std::cout, "   " + JSONEncoder{}.encode(*marked));

        step("The user logs out (logout)");
        service.logout();
        if (!service.fetchAllNotifications().value_or(std::vector<Response>{}).empty()) {
            return fail("records are left after logout");
        }
        return ok("the store holds no notification any more");
    }

    // Ends with the agent: where a session bus is there, a push goes through `fexo-agent`, which
    // runs `fexo handle-push` for it and shows the delivered content on the desktop; the app's
    // launcher badge counts it, and when the app reads the record the agent withdraws the
    // notification and the badge follows (both watched with dbus-monitor, where it is installed).
    // The demo starts an agent of its own with the demo's configuration and state; where another
    // agent already serves the bus name, that one takes the push (and, with its own
    // configuration, shows the push's original alert).
    bool showThroughAgent(const std::filesystem::path& directory)
    {
        if (std::getenv("DBUS_SESSION_BUS_ADDRESS") == nullptr) {
            std::cout << '\n';
            writeTerminalLine(std::cout, "(no session bus: the agent's part is left out)");
            return true;
        }
        step("The agent runs the extension for a push and shows it on the desktop (fexo agent push)");
        const auto agent = siblingProgram("fexo-agent");
        const auto push = queuePush("Your parcel arrives today", "FeXO Post");
        if (!push) return fail("the development server did not queue the notification");
        const auto pushFile = directory / "push.json";
        std::ofstream(pushFile) << *push;
        ::setenv("FEXO_RESOURCES_DIR", directory.c_str(), 1);
        ::setenv("XDG_STATE_HOME", (directory / "state").c_str(), 1);
        const std::string desktopEntry = "com.example.fexo.demo";
        AgentProcess badges(
            "/usr/bin/dbus-monitor",
            {"--session", "type='signal',interface='com.canonical.Unity.LauncherEntry',member='Update'"},
            STDOUT_FILENO);
        const bool watchingBadges =
            badges.started() && badges.firstWords("NameLost").find("NameLost") != std::string::npos;
        // The count of the next badge update, or nothing.
        const auto nextBadge = [&]() -> std::optional<std::string> {
            if (!watchingBadges) return std::nullopt;
            const std::string update = badges.firstWords("int64");
            const auto count = update.rfind("int64");
            if (count == std::string::npos) return std::nullopt;
            return update.substr(update.find_first_not_of(' ', count + 5));
        };
        const auto extension = siblingProgram("fexo").string() + " handle-push";
        AgentProcess own(agent,
                         {"run", "--extension", extension, "--app-name", "FeXO demo", "--desktop-entry", desktopEntry});
        const std::string start = own.firstWords();
        writeTerminalLine(std::cout, "   " + start);
        const bool ours = start.find("serving") != std::string::npos;
        if (ours) {
            if (const auto badge = nextBadge())
                writeTerminalLine(std::cout, "   launcher badge of " + desktopEntry + ": " + *badge);
        }
        const int status = std::system(("'" + agent.string() + "' push '" + pushFile.string() + "'").c_str());
        showWire();
        if (status == -1 || !WIFEXITED(status) || (WEXITSTATUS(status) != 0 && WEXITSTATUS(status) != 3)) {
            return fail("the agent did not deliver the push");
        }
        if (!ours) return ok("delivered once, by the agent that already serves this session");
        const std::string shown = own.firstWords("fexo-agent: push ");
        writeTerminalLine(std::cout, "   " + shown);
        if (const auto badge = nextBadge()) writeTerminalLine(std::cout, "   launcher badge: " + *badge);
        if (shown.find("shown as notification") == std::string::npos)
            return ok("delivered once; with no notification service on this bus it waits in the agent's queue, so "
                      "there is nothing to withdraw");
        ok("delivered once and shown through org.freedesktop.Notifications");

        step("The app reads it in its own process (markNotificationAsRead): the agent withdraws it");
        FeXOService service;
        const auto newest = service.fetchNotifications(1);
        if (newest.isFailure() || newest.value().records.empty() || !newest.value().records[0].id)
            return fail("the agent's push left no record");
        service.markNotificationAsRead(*newest.value().records[0].id);
        const std::string withdrawn = own.firstWords("withdrawn");
        writeTerminalLine(std::cout, "   " + withdrawn);
        if (const auto badge = nextBadge()) writeTerminalLine(std::cout, "   launcher badge: " + *badge);
        if (withdrawn.find("withdrawn") == std::string::npos) return fail("the agent did not withdraw it");
        return ok("the desktop follows the inbox");
    }

    // Ends with the inbox: `fexo watch` runs as the app, a push is handled by `fexo handle-push` in
    // a process of its own as the extension, and the watch prints it as it arrives.
    bool showArrivalInWatch(const std::filesystem::path& directory)
    {
        step("The app watches its inbox (fexo watch) while the extension stores a push in another process");
        ::setenv("FEXO_RESOURCES_DIR", directory.c_str(), 1);
        const auto fexo = siblingProgram("fexo");
        AgentProcess watch(fexo, {"watch"}, STDOUT_FILENO);
        const std::string before = watch.firstWords("\n");
        writeTerminalLine(std::cout, "   watch: " + before.substr(0, before.find('\n')));
        const auto push = queuePush("Your parcel was delivered", "FeXO Post");
        if (!push) return fail("the development server did not queue the notification");
        const auto pushFile = directory / "arrival.json";
        std::ofstream(pushFile) << *push;
        const int status =
            std::system(("'" + fexo.string() + "' handle-push < '" + pushFile.string() + "' > /dev/null").c_str());
        if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return fail("the extension failed");
        showWire();
        const std::string arrived = watch.firstWords("\n");
        writeTerminalLine(std::cout, "   watch: " + arrived.substr(0, arrived.find('\n')));
        if (arrived.find("Your parcel was delivered") == std::string::npos) return fail("the watch did not show it");
        return ok("the app saw the push the moment the extension stored it");
    }

    std::optional<std::string> queuePush(const std::string& text, const std::string& sender)
    {
        httplib::Client client(server_->baseURL());
        const httplib::Headers headers{{"client_id", clientId}, {"client_secret", clientSecret}};
        const nlohmann::json body{{"recipientId", "demo-device"}, {"text", text}, {"sender", sender}};
        const auto queued = client.Post("/dev/notifications", headers, body.dump(), "application/json");
        if (!queued || queued->status != 200) return std::nullopt;
        return queued->body;
    }

    // Prints the exchanges the server answered since the last call.
    void showWire()
    {
        const auto exchanges = server_->exchanges();
        for (std::size_t i = shown_; i < exchanges.size(); ++i) {
            const auto& e = exchanges[i];
            std::string request = "   -> " + e.method + " " + e.path;
            for (const auto& [name, value] : e.requestHeaders) request += "  " + name + ": " + value;
            writeTerminalLine(std::cout, request);
            writeTerminalLine(std::cout, "      " + (e.requestBody.empty() ? "(no body)" : e.requestBody));
            writeTerminalLine(std::cout, "   <- " + std::to_string(e.status) + " " + e.responseBody);
        }
        shown_ = exchanges.size();
    }

    void step(const std::string& text)
    {
        std::cout << '\n';
        writeTerminalLine(std::cout, "== " + text);
    }

    bool ok(const std::string& text)
    {
        writeTerminalLine(std::cout, "   ok: " + text);
        return true;
    }

    bool fail(const std::string& text)
    {
        std::cout << std::flush;
        std::cerr << "fexo demo: " << terminalText(text) << std::endl;
        return false;
    }

    std::unique_ptr<DevelopmentServer> server_;
    std::size_t shown_ = 0;
};

} // namespace

void addDemoCommand(CLI::App& app, const ToolOptions&, int& exitCode)
{
    app.add_subcommand("demo", handedOverDescription("demo"))->callback([&exitCode] { exitCode = Demo().run(); });
}

} // namespace fexo::tool
