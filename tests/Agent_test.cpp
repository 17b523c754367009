#include <support/Completion.hpp>
#include <support/ToolSandbox.hpp>

#include <agent/DesktopEntry.hpp>
#include <agent/NotificationAgent.hpp>
#include <agent/NotificationText.hpp>

#include <FeXONotificationService/FeXOService.hpp>

#include <gmock/gmock.h>
#include <sdbus-c++/sdbus-c++.h>

#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <condition_variable>
#include <fstream>
#include <map>
#include <mutex>

using namespace fexo::test;
using fexo::agent::agentInterface;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::StartsWith;

namespace {

const std::filesystem::path fexoTool = FEXO_TOOL_PATH;
const std::filesystem::path agentProgram = fexoTool.parent_path() / "fexo-agent";
const std::string misbehave = std::string(FEXO_TEST_SOURCE_DIR) + "/tests/agent/misbehave";
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) // GCC's names: the suite is built with GCC
const std::string extensionMemory = "1024";                       // the instrumented fexo handle-push needs far more
#else
const std::string extensionMemory = "24";
#endif
constexpr const char* desktopName = "org.freedesktop.Notifications";
constexpr const char* desktopPath = "/org/freedesktop/Notifications";
constexpr const char* mockInterface = "org.freedesktop.DBus.Mock";

// A push whose own alert is "Original" / `body`; `name` is what tests/agent/misbehave's hold reads.
std::string pushWithAlert(const std::string& body, const std::string& name = "")
{
    nlohmann::json push{{"recipientId", "nobody"}, {"aps", {{"alert", {{"title", "Original"}, {"body", body}}}}}};
    if (!name.empty()) push["name"] = name;
    return push.dump();
}

void makeFifo(const std::filesystem::path& path)
{
    if (::mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("mkfifo failed");
}

// The first line written into a FIFO (opening it waits for its writer).
std::string readFifo(const std::filesystem::path& path)
{
    std::ifstream fifo(path);
    std::string line;
    std::getline(fifo, line);
    return line;
}

struct NotifyCall {
    std::string icon, title, body;
    std::vector<std::string> actions;
    std::map<std::string, sdbus::Variant> hints;
};

// `fexo-agent run ARGUMENTS`, with `environment` ("NAME=value") added to the test's, and its log
// on the pipe that waitFor() reads.
class Agent {
public:
    explicit Agent(const std::vector<std::string>& arguments, const std::string& environment = "")
    {
        std::vector<std::string> words{"-c", "exec env " + environment + " \"$0\" \"$@\" 2>&1", agentProgram.string(),
                                       "run"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        process_ = std::make_unique<ChildProcess>("/bin/sh", words);
    }
    // The log up to the first line that holds `text` (fails the test after `patience`).
    std::string waitFor(const std::string& text)
    {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (std::chrono::steady_clock::now() < deadline) {
            const std::string line = process_->readLine(std::chrono::seconds(1));
            log_ += line + "\n";
            if (line.find(text) != std::string::npos) return log_;
        }
        ADD_FAILURE() << "the agent never said \"" << text << "\"; it said:\n" << log_;
        return log_;
    }
    int stop(int signal) { return process_->stop(signal, patience); }

private:
    std::unique_ptr<ChildProcess> process_;
    std::string log_;
};

// A private session bus with python3-dbusmock's notification daemon (with `capabilities`, and
// CloseNotification as the desktop's: `u`, reason 3), the agent's state and data folders of its
// own, and a client that records Delivered, NotificationClosed and the launcher badge.
class Desktop {
public:
    explicit Desktop(const std::string& capabilities = "body body-markup actions")
    {
        const auto& dir = directory_.path();
        std::filesystem::create_directories(dir / "services");
        std::ofstream(dir / "services/notifications.service")
            << "[D-BUS Service]\nName=" << desktopName
            << "\nExec=/usr/bin/python3 -m dbusmock --session -t notification_daemon -p "
               "'{\"capabilities\": \""
            << capabilities << "\"}'\n";
        std::ofstream(dir / "bus.conf")
            << "<busconfig><type>session</type><listen>unix:path=" << (dir / "bus").string() << "</listen>"
            << "<auth>EXTERNAL</auth><servicedir>" << (dir / "services").string()
            << "</servicedir><policy context=\"default\">"
            << "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/>"
            << "</policy></busconfig>";
        // Inherited by the agent, the extension and the tools.
        ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (dir / "bus").string()).c_str(), 1);
        ::setenv("XDG_STATE_HOME", (dir / "state").c_str(), 1);
        ::setenv("XDG_DATA_HOME", (dir / "data").c_str(), 1);
        daemon_ = std::make_unique<ChildProcess>(
            "/usr/bin/dbus-daemon",
            std::vector<std::string>{"--nofork", "--print-address=1", "--config-file=" + (dir / "bus.conf").string()});
        if (daemon_->readLine().empty()) throw std::runtime_error("dbus-daemon did not start");
        connection_ = sdbus::createSessionBusConnection();
        bus_ = sdbus::createProxy(*connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus");
        std::uint32_t started = 0;
        bus_->callMethod("StartServiceByName")
            .onInterface("org.freedesktop.DBus")
            .withArguments(std::string(desktopName), std::uint32_t{0})
            .storeResultsTo(started);
        desktop_ = sdbus::createProxy(*connection_, desktopName, desktopPath);
        desktop_->callMethod("AddMethod")
            .onInterface(mockInterface)
            .withArguments(std::string(desktopName), std::string("CloseNotification"), std::string("u"),
                           std::string(""),
                           std::string("self.EmitSignal('', 'NotificationClosed', 'uu', [args[0], 3])"));
        desktop_->uponSignal("NotificationClosed")
            .onInterface(desktopName)
            .call([this](std::uint32_t id, std::uint32_t reason) { record(closed_, std::make_pair(id, reason)); });
        desktop_->finishRegistration();
        agent_ = sdbus::createProxy(*connection_, fexo::agent::agentBusName, fexo::agent::agentObjectPath);
        agent_->uponSignal("Delivered")
            .onInterface(agentInterface)
            .call([this](const std::string& id, const std::string& title, const std::string& body, bool rewritten) {
                record(delivered_, std::make_pair(id, fexo::tool::DeliveredContent{title, body, rewritten, {}}));
            });
        agent_->finishRegistration();
        badges_ = connection_->addMatch(
            "type='signal',interface='com.canonical.Unity.LauncherEntry',member='Update'", [this](sdbus::Message& m) {
                std::string application;
                std::map<std::string, sdbus::Variant> properties;
                m >> application >> properties;
                record(badge_, std::make_pair(application, properties.at("count").get<std::int64_t>()));
            });
        connection_->enterEventLoopAsync();
    }
    ~Desktop() { connection_->leaveEventLoop(); }

    const std::filesystem::path& directory() const { return directory_.path(); }

    std::string push(const std::string& userInfoJSON)
    {
        std::string id;
        agent_->callMethod("Push").onInterface(agentInterface).withArguments(userInfoJSON).storeResultsTo(id);
        return id;
    }
    // The D-Bus error's name of a push refused, else "accepted".
    std::string refusal(const std::string& userInfoJSON)
    {
        try {
            push(userInfoJSON);
            return "accepted";
        } catch (const sdbus::Error& error) {
            return error.getName();
        }
    }
    // Every Delivered signal, once `count` arrived (fails the test after `patience`).
    std::vector<std::pair<std::string, fexo::tool::DeliveredContent>> delivered(std::size_t count)
    {
        return waitFor(delivered_, count);
    }
    // Every NotificationClosed (id, reason), once `count` arrived.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> closed(std::size_t count) { return waitFor(closed_, count); }
    // Every launcher badge update (application, count), once `count` arrived.
    std::vector<std::pair<std::string, std::int64_t>> badges(std::size_t count) { return waitFor(badge_, count); }

    std::vector<NotifyCall> notifications()
    {
        std::vector<sdbus::Struct<std::uint64_t, std::string, std::vector<sdbus::Variant>>> calls;
        desktop_->callMethod("GetCalls").onInterface(mockInterface).storeResultsTo(calls);
        std::vector<NotifyCall> shown;
        for (auto& call : calls) {
            if (call.get<1>() != "Notify") continue;
            const auto& a = call.get<2>();
            shown.push_back({a.at(2).get<std::string>(), a.at(3).get<std::string>(), a.at(4).get<std::string>(),
                             a.at(5).get<std::vector<std::string>>(),
                             a.at(6).get<std::map<std::string, sdbus::Variant>>()});
        }
        return shown;
    }
    // How many Notify calls showed `body`.
    std::size_t shownTimes(const std::string& body)
    {
        std::size_t times = 0;
        for (const auto& call : notifications()) times += call.body == body;
        return times;
    }
    void emit(const std::string& signal, const std::string& signature, std::vector<sdbus::Variant> arguments)
    {
        desktop_->callMethod("EmitSignal")
            .onInterface(mockInterface)
            .withArguments(std::string(desktopName), signal, signature, arguments);
    }
    void click(std::uint32_t notification, const std::string& action, const std::string& token = "")
    {
        if (!token.empty()) emit("ActivationToken", "us", {notification, token});
        emit("ActionInvoked", "us", {notification, action});
    }
    // The process that owns the bus name `name`.
    pid_t processOf(const std::string& name)
    {
        std::uint32_t pid = 0;
        bus_->callMethod("GetConnectionUnixProcessID")
            .onInterface("org.freedesktop.DBus")
            .withArguments(name)
            .storeResultsTo(pid);
        return static_cast<pid_t>(pid);
    }
    sdbus::IConnection& connection() { return *connection_; }

private:
    template <class T>
    void record(std::vector<T>& list, T value)
    {
        std::lock_guard lock(mutex_);
        list.push_back(std::move(value));
        changed_.notify_all();
    }
    template <class T>
    std::vector<T> waitFor(const std::vector<T>& list, std::size_t count)
    {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, patience, [&] { return list.size() >= count; }))
            << list.size() << " of " << count;
        return list;
    }

    TemporaryDirectory directory_;
    std::unique_ptr<ChildProcess> daemon_;
    std::unique_ptr<sdbus::IConnection> connection_;
    std::unique_ptr<sdbus::IProxy> bus_, desktop_, agent_;
    sdbus::Slot badges_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::pair<std::string, fexo::tool::DeliveredContent>> delivered_;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> closed_;
    std::vector<std::pair<std::string, std::int64_t>> badge_;
};

std::string contentOf(const std::vector<std::pair<std::string, fexo::tool::DeliveredContent>>& delivered,
                      const std::string& id)
{
    for (const auto& [request, content] : delivered)
        if (request == id) return fexo::tool::deliveredContentJSON(content);
    return "(not delivered)";
}

// Reads `process`'s output until a line holds `text`; false when none did within `patience`.
bool readUntil(ChildProcess& process, const std::string& text)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < deadline)
        if (process.readLine(std::chrono::seconds(1)).find(text) != std::string::npos) return true;
    return false;
}

// The stored records' ids by their text.
std::map<std::string, std::string> recordIds()
{
    std::map<std::string, std::string> ids;
    for (const auto& record : fexo::FeXOService().fetchAllNotifications().value_or(std::vector<fexo::Response>{}))
        if (record.data && record.data->text && record.id) ids[*record.data->text] = *record.id;
    return ids;
}

// Waits until the process `pid` has ended.
bool ended(pid_t pid)
{
    const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (descriptor < 0) return errno == ESRCH;
    pollfd watched{descriptor, POLLIN, 0};
    const bool done = ::poll(&watched, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) == 1;
    ::close(descriptor);
    return done;
}

} // namespace

TEST(Agent, ShowsEachPushWithItsOwnContentInArrivalOrder)
{
    ToolSandbox sandbox(fexoTool);
    sandbox.serve();
    Desktop desktop;
    Agent agent({"--memory-limit", extensionMemory});
    agent.waitFor("serving");
    std::vector<std::string> ids;
    for (int i = 0; i < 30; ++i) {
        const auto push = sandbox.queueNotification("dev-1", "text " + std::to_string(i), "Ann");
        ids.push_back(desktop.push(push.dump()));
    }
    // A listener other than the caller hears nothing: Delivered carries the text.
    auto listener = sdbus::createSessionBusConnection();
    std::atomic<int> overheard{0};
    auto slot = listener->addMatch("type='signal',member='Delivered'", [&](sdbus::Message&) { ++overheard; });
    const auto delivered = desktop.delivered(30);
    for (int i = 0; i < 30; ++i)
        EXPECT_EQ(contentOf(delivered, ids[static_cast<std::size_t>(i)]),
                  R"({"title":"Ann","body":"text )" + std::to_string(i) + R"(","rewritten":true,"id":null})");
    EXPECT_EQ(desktop.notifications().size(), 30u);
    listener->processPendingRequest();
    auto bus = sdbus::createProxy(*listener, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    std::string busId;
    bus->callMethod("GetId").onInterface("org.freedesktop.DBus").storeResultsTo(busId); // after any broadcast
    while (listener->processPendingRequest()) { }
    EXPECT_EQ(overheard, 0);
    EXPECT_EQ(agent.stop(SIGTERM), 0);
}

TEST(Agent, ShowsThePushsOwnAlertWhenTheExtensionDeliversNoNotification)
{
    ToolSandbox sandbox(fexoTool);
    sandbox.serve();
    fexo::FeXOService service;
    service.write(fexo::Response(std::nullopt, fexo::NotificationData{"a text", "Bo"}, std::nullopt, std::nullopt,
                                 std::string("GOOD")));
    service.write(
        fexo::Response(std::nullopt, std::nullopt, 404, std::string("Notification not found"), std::string("REFUSAL")));
    TemporaryDirectory lines;
    const auto line = [&](const std::string& name, const std::string& content) {
        std::ofstream(lines.path() / name) << content << "\n";
        return "--extension=" + misbehave + " print " + (lines.path() / name).string();
    };
    // Found and executable when the agent starts, yet it cannot be executed: no such interpreter.
    const auto unrunnable = lines.path() / "unrunnable";
    std::ofstream(unrunnable) << "#!/nonexistent/interpreter\n";
    std::filesystem::permissions(unrunnable, std::filesystem::perms::owner_all);
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        // The server refuses: nothing is queued for this recipient.
        {{"--memory-limit", extensionMemory}, R"({"title":"Original","body":"%","rewritten":false,"id":null})"},
        {{"--extension=" + misbehave + " crash"}, R"({"title":"Original","body":"%","rewritten":false,"id":null})"},
        {{"--extension=" + misbehave + " fail"}, R"({"title":"Original","body":"%","rewritten":false,"id":null})"},
        {{"--extension=" + misbehave + " garbage"}, R"({"title":"Original","body":"%","rewritten":false,"id":null})"},
        {{"--extension=" + misbehave + " hang", "--time-limit", "0.3"},
         R"({"title":"Original","body":"%","rewritten":false,"id":null})"},
        {{"--extension=" + misbehave + " memory", "--memory-limit", "64"},
         R"({"title":"Original","body":"%","rewritten":false,"id":null})"},
        {{"--extension=" + unrunnable.string()}, R"({"title":"Original","body":"%","rewritten":false,"id":null})"},
        // A line that names a refusal, or a record that is not stored, is no notification.
        {{line("refusal", R"({"title":"","body":"","rewritten":true,"id":"REFUSAL"})")},
         R"({"title":"Original","body":"%","rewritten":false,"id":null})"},
        {{line("missing", R"({"title":"T","body":"B","rewritten":true,"id":"MISSING"})")},
         R"({"title":"Original","body":"%","rewritten":false,"id":null})"},
        // A line naming a stored notification, or none at all, is shown as printed.
        {{line("good", R"({"title":"Bo","body":"a text","rewritten":true,"id":"GOOD"})")},
         R"({"title":"Bo","body":"a text","rewritten":true,"id":null})"},
        {{line("none", R"({"title":"T","body":"B","rewritten":true})")},
         R"({"title":"T","body":"B","rewritten":true,"id":null})"},
    };
    int round = 0;
    for (const auto& [arguments, expected] : cases) {
        SCOPED_TRACE(arguments.front());
        Desktop desktop;
        Agent agent(arguments);
        agent.waitFor("serving");
        const std::string body = "case " + std::to_string(round++);
        const auto id = desktop.push(pushWithAlert(body));
        std::string wanted = expected;
        if (const auto mark = wanted.find('%'); mark != std::string::npos) wanted.replace(mark, 1, body);
        EXPECT_EQ(contentOf(desktop.delivered(1), id), wanted);
        EXPECT_EQ(desktop.notifications().size(), 1u);
        if (arguments.front().ends_with(unrunnable.string()))
            agent.waitFor("could not run " + unrunnable.string() + ": No such file or directory");
    }
}

TEST(Agent, ShowsPlainTextEscapedOnlyWhereTheDaemonReadsMarkup)
{
    const std::string title = "Tom & Jerry <b>\x01\x1b[31m\xc2\x85!";
    const std::string body = "a & b <img src=x>\n\tline\x7f";
    const nlohmann::json push{{"aps", {{"alert", {{"title", "ignored"}, {"body", "ignored"}}}}}};
    TemporaryDirectory lines;
    std::ofstream(lines.path() / "line") << nlohmann::json{{"title", title}, {"body", body}, {"rewritten", true}}.dump()
                                         << "\n";
    const std::vector<std::string> options{"--extension=" + misbehave + " print " + (lines.path() / "line").string(),
                                           "--desktop-entry",
                                           "org.example.App",
                                           "--icon",
                                           "mail-unread",
                                           "--app-name",
                                           "Example"};
    {
        Desktop markup("body body-markup actions");
        Agent agent(options);
        agent.waitFor("serving");
        markup.push(push.dump());
        markup.delivered(1);
        const auto shown = markup.notifications();
        ASSERT_EQ(shown.size(), 1u);
        EXPECT_EQ(shown[0].title, "Tom & Jerry <b>[31m!");
        EXPECT_EQ(shown[0].body, "a &amp; b &lt;img src=x&gt;\nline");
        EXPECT_EQ(shown[0].icon, "mail-unread");
        EXPECT_THAT(shown[0].actions, ElementsAre("default", "Open", "open", "Open"));
        EXPECT_EQ(shown[0].hints.at("desktop-entry").get<std::string>(), "org.example.App");
        EXPECT_EQ(shown[0].hints.at("urgency").get<std::uint8_t>(), 1);
    }
    {
        Desktop plain("body");
        Agent agent(options);
        agent.waitFor("serving");
        plain.push(push.dump());
        plain.delivered(1);
        const auto shown = plain.notifications();
        ASSERT_EQ(shown.size(), 1u);
        EXPECT_EQ(shown[0].body, "a & b <img src=x>\nline");
        EXPECT_THAT(shown[0].actions, ElementsAre("default", "Open"));
    }
}

TEST(Agent, RefusesEachWrongOptionWithOneLineBeforeTouchingTheBus)
{
    TemporaryDirectory directory;
    const auto notExecutable = directory.path() / "plain";
    std::ofstream(notExecutable) << "#!/bin/sh\n";
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (directory.path() / "nobus").string()).c_str(), 1);
    ::setenv("XDG_STATE_HOME", (directory.path() / "state").c_str(), 1);
    const std::vector<std::pair<std::vector<std::string>, std::string>> refused = {
        {{"--time-limit", "nan"}, "--time-limit: must be a finite number of seconds above 0, not nan"},
        {{"--time-limit", "0"}, "--time-limit: must be a finite number of seconds above 0, not 0"},
        {{"--time-limit", "inf"}, "--time-limit: must be a finite number of seconds above 0, not inf"},
        {{"--memory-limit", "nan"}, "--memory-limit: must be a finite number of MiB above 0, not nan"},
        {{"--memory-limit", "-1"}, "--memory-limit: must be a finite number of MiB above 0, not -1"},
        {{"--queue", "0"}, "--queue: must be a whole number from 1 to 1000000, not 0"},
        {{"--concurrency", "0"}, "--concurrency: must be a whole number from 1 to 1024, not 0"},
        {{"--concurrency", "2.5"}, "--concurrency: must be a whole number from 1 to 1024, not 2.5"},
        {{"--extension", "/nonexistent/extension"},
         "--extension: the extension program /nonexistent/extension cannot be found: No such file or directory"},
        {{"--extension", notExecutable.string()},
         "--extension: the extension program " + notExecutable.string() + " is not an executable file"},
        {{"--extension", "no-such-extension-program"},
         "--extension: the extension program no-such-extension-program is not found in PATH"},
        {{"--desktop-entry", "../x"},
         "--desktop-entry: must be a desktop entry id (letters, digits, '.', '-' and '_'), not ../x"},
    };
    for (const auto& [arguments, message] : refused) {
        std::vector<std::string> words{"run"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        const auto result = ChildProcess::run(agentProgram, words);
        EXPECT_EQ(result.exitCode, 1) << message;
        EXPECT_EQ(result.standardError, "fexo-agent: " + message + "\n");
    }
    // Any finite time is taken, however large: these reach the bus (and find none).
    for (const auto* limit : {"100000", "1e300"}) {
        const auto result = ChildProcess::run(agentProgram, {"run", "--time-limit", limit, "--memory-limit", "1e300"});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.standardError, HasSubstr("fexo-agent: no session bus"));
    }
    // Usage lines name the command as it was typed.
    EXPECT_THAT(ChildProcess::run(agentProgram, {"run", "--help"}).standardOutput, HasSubstr("Usage: fexo-agent run"));
    EXPECT_THAT(ChildProcess::run(fexoTool, {"agent", "run", "--help"}).standardOutput,
                HasSubstr("Usage: fexo agent run"));
}

TEST(Agent, OneAgentPerUserAndItsStateIsPrivate)
{
    Desktop desktop;
    const auto folder = desktop.directory() / "state/fexo/agent";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "queue.sqlite") << std::string(8192, 'x'); // damaged beyond reading
    Agent agent({"--extension=" + misbehave + " crash"});
    EXPECT_THAT(agent.waitFor("serving"), HasSubstr("is damaged (file is not a database); moved aside to"));
    const auto second = ChildProcess::run(agentProgram, {"run", "--extension=" + misbehave + " crash"});
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_EQ(second.standardError, "fexo-agent: another agent already serves this user (it holds " +
                                        (folder / "agent.lock").string() + ")\n");
    // Another user's state (or none) cannot share this session bus's name either.
    const auto elsewhere =
        ChildProcess::run("/usr/bin/env", {"XDG_STATE_HOME=" + (desktop.directory() / "other").string(),
                                           agentProgram.string(), "run", "--extension=" + misbehave + " crash"});
    EXPECT_EQ(elsewhere.exitCode, 1);
    EXPECT_EQ(elsewhere.standardError, "fexo-agent: another agent already serves this user on this session bus (it "
                                       "owns org.fexo.NotificationAgent1)\n");
    const auto id = desktop.push(pushWithAlert("after the damage"));
    EXPECT_EQ(contentOf(desktop.delivered(1), id),
              R"({"title":"Original","body":"after the damage","rewritten":false,"id":null})");
    for (const auto& folderMade : {desktop.directory() / "state/fexo", folder}) {
        struct stat status { };
        ASSERT_EQ(::stat(folderMade.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0700u) << folderMade;
    }
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        struct stat status { };
        ASSERT_EQ(::stat(file.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600u) << file.path();
    }
}

// Pushes stopped at each boundary by SIGKILL and by SIGTERM, and an agent started again: every
// accepted push is shown once, with the content it had reached; only a Notify that the desktop
// had not answered when the agent was killed is shown again.
TEST(Agent, ShowsEveryAcceptedPushOnceWhateverStopsTheAgent)
{
    for (const int signal : {SIGKILL, SIGTERM}) {
        SCOPED_TRACE(signal == SIGKILL ? "SIGKILL" : "SIGTERM");
        Desktop desktop;
        const auto dir = desktop.directory();
        makeFifo(dir / "started"), makeFifo(dir / "release");
        auto agent =
            std::make_unique<Agent>(std::vector<std::string>{"--extension=" + misbehave + " hold " + dir.string()});
        agent->waitFor("serving");
        std::size_t delivered = 0;
        // Stops the agent with `signal`; `meanwhile` runs once it stopped taking pushes (SIGTERM).
        const auto stopAndRestart = [&](const std::function<void()>& meanwhile) {
            if (signal == SIGKILL) {
                EXPECT_EQ(agent->stop(SIGKILL), 128 + SIGKILL);
                meanwhile();
            } else {
                ::kill(desktop.processOf(fexo::agent::agentBusName), SIGTERM);
                agent->waitFor("stopping");
                meanwhile();
                EXPECT_EQ(agent->stop(0), 0);
            }
            agent =
                std::make_unique<Agent>(std::vector<std::string>{"--extension=" + misbehave + " hold " + dir.string()});
            agent->waitFor("serving");
        };

        // 1. An extension held on its FIFO, and a push waiting behind it.
        desktop.push(pushWithAlert("held", "hold-1"));
        desktop.push(pushWithAlert("waiting", "waiting-1"));
        const pid_t extension = std::stoi(readFifo(dir / "started"));
        stopAndRestart([&] {
            if (signal == SIGKILL)
                EXPECT_TRUE(ended(extension)); // it died with the agent
            else
                std::ofstream(dir / "release") << "go\n"; // it ends within the grace
        });
        desktop.delivered(delivered += 2);
        EXPECT_EQ(desktop.shownTimes(signal == SIGKILL ? "held" : "rewritten hold-1"), 1u);
        EXPECT_EQ(desktop.shownTimes("rewritten waiting-1"), 1u);

        // 2. A Notify held by a stopped desktop.
        ChildProcess monitor("/usr/bin/dbus-monitor", {"--session", "type='method_call',member='Notify'"});
        ASSERT_TRUE(readUntil(monitor, "member=NameLost")); // monitoring from here on
        const pid_t daemon = desktop.processOf(desktopName);
        ::kill(daemon, SIGSTOP);
        desktop.push(pushWithAlert("notify", "notify-1"));
        ASSERT_TRUE(readUntil(monitor, "member=Notify"));
        stopAndRestart([&] { ::kill(daemon, SIGCONT); });
        desktop.push(pushWithAlert("after", "after-1")); // the agent has taken up what was left
        desktop.delivered(delivered += 2);
        // Killed before the answer came, the agent cannot know that the desktop shows it.
        EXPECT_EQ(desktop.shownTimes("rewritten notify-1"), signal == SIGKILL ? 2u : 1u);

        // 3. Just after the desktop's answer.
        desktop.push(pushWithAlert("shown", "shown-1"));
        desktop.delivered(delivered += 1);
        stopAndRestart([] {});
        desktop.push(pushWithAlert("last", "last-1"));
        desktop.delivered(delivered += 1);
        EXPECT_EQ(desktop.shownTimes("rewritten shown-1"), 1u);

        if (signal == SIGTERM) {
            // 4. An extension that outlives the grace is killed; its push is shown at the next start.
            desktop.push(pushWithAlert("held too long", "hold-2"));
            const pid_t late = std::stoi(readFifo(dir / "started"));
            stopAndRestart([] {});
            EXPECT_TRUE(ended(late));
            desktop.delivered(delivered += 1);
            EXPECT_EQ(desktop.shownTimes("held too long"), 1u);
        }
        std::ifstream runs(dir / "runs");
        const std::string ran((std::istreambuf_iterator<char>(runs)), std::istreambuf_iterator<char>());
        EXPECT_EQ(ran, signal == SIGKILL ? "hold-1\nwaiting-1\nnotify-1\nafter-1\nshown-1\nlast-1\n"
                                         : "hold-1\nwaiting-1\nnotify-1\nafter-1\nshown-1\nlast-1\nhold-2\n");
        EXPECT_EQ(agent->stop(SIGTERM), 0);
    }
}

TEST(Agent, WithdrawsWhatTheInboxNoLongerHoldsUnreadAndKeepsTheBadgeInStep)
{
    ToolSandbox sandbox(fexoTool);
    sandbox.serve();
    Desktop desktop;
    Agent agent({"--memory-limit", extensionMemory, "--desktop-entry", "org.example.App"});
    agent.waitFor("serving");
    std::size_t badgeUpdates = 1, closedCount = 0, delivered = 0;
    EXPECT_THAT(desktop.badges(badgeUpdates), ElementsAre(Pair("application://org.example.App.desktop", 0)));
    // Waits for the badge to show `count` (updates can fold), and for the notifications `closed`.
    const auto expect = [&](std::int64_t count, std::vector<std::uint32_t> closed) {
        for (;;) {
            const auto badges = desktop.badges(badgeUpdates);
            if (badges.back().second == count || ::testing::Test::HasFailure()) break;
            ++badgeUpdates;
        }
        closedCount += closed.size();
        const auto all = desktop.closed(closedCount);
        for (const auto id : closed) EXPECT_THAT(all, Contains(Pair(id, 3u))) << id;
    };
    const auto pushes = [&](const std::vector<std::string>& texts) {
        for (const auto& text : texts) desktop.push(sandbox.queueNotification("dev-1", text, "Ann").dump());
        desktop.delivered(delivered += texts.size());
    };
    const auto fexo = [&](const std::vector<std::string>& arguments) {
        EXPECT_EQ(sandbox.run(arguments).exitCode, 0) << arguments.front();
    };

    pushes({"t1", "t2", "t3", "t4"}); // notifications 1 to 4
    expect(4, {});
    auto ids = recordIds();
    fexo({"mark-read", ids["t1"]});
    expect(3, {1});
    fexo({"delete", ids["t2"]});
    expect(2, {2});
    fexo({"mark-all-read"});
    expect(0, {3, 4});
    pushes({"t5", "t6"}); // 5, 6
    expect(2, {});
    fexo({"logout"});
    expect(0, {5, 6});

    // Dismissed by the user: the record stays unread. A click marks it read, and so withdraws it.
    pushes({"t7", "t8"}); // 7, 8
    expect(2, {});
    desktop.emit("NotificationClosed", "uu", {std::uint32_t{7}, std::uint32_t{2}});
    ++closedCount;
    desktop.click(8, "default");
    expect(1, {8});
    ids = recordIds();
    EXPECT_NE(fexo::FeXOService().fetchNotification(ids["t7"])->isRead, true);
    EXPECT_EQ(fexo::FeXOService().fetchNotification(ids["t8"])->isRead, true);
    EXPECT_EQ(agent.stop(SIGTERM), 0);
}

TEST(Agent, AClickOnItsOwnNotificationMarksTheRecordReadAndHandsItsIdToTheHostCommand)
{
    ToolSandbox sandbox(fexoTool);
    sandbox.serve();
    Desktop desktop;
    const auto fifo = desktop.directory() / "opened";
    makeFifo(fifo);
    Agent agent({"--memory-limit", extensionMemory, "--host-command",
                 "printf '%s %s %s %s\\n' \"$FEXO_RECORD_ID\" \"$FEXO_REQUEST_ID\" \"$XDG_ACTIVATION_TOKEN\" "
                 "\"$DESKTOP_STARTUP_ID\" > " +
                     fifo.string()});
    agent.waitFor("serving");
    const auto requestId = desktop.push(sandbox.queueNotification("dev-1", "hello", "Ann").dump());
    desktop.delivered(1);
    const auto recordId = recordIds()["hello"];
    ASSERT_FALSE(recordId.empty());

    // The same signal from a connection that does not own the desktop's name does not count.
    auto impostor = sdbus::createObject(desktop.connection(), desktopPath);
    impostor->registerSignal("ActionInvoked").onInterface(desktopName).withParameters<std::uint32_t, std::string>();
    impostor->finishRegistration();
    impostor->emitSignal("ActionInvoked")
        .onInterface(desktopName)
        .withArguments(std::uint32_t{1}, std::string("default"));
    desktop.click(99, "default"); // another application's notification
    desktop.click(1, "open", "token-1");
    EXPECT_EQ(readFifo(fifo), recordId + " " + requestId + " token-1 token-1");
    EXPECT_EQ(fexo::FeXOService().fetchNotification(recordId)->isRead, true);
}

TEST(Agent, AClickWithoutAHostCommandOpensTheDesktopEntryAsALauncherWould)
{
    Desktop desktop;
    const auto fifo = desktop.directory() / "opened";
    makeFifo(fifo);
    const auto entry = desktop.directory() / "data/applications/org.example.App.desktop";
    std::filesystem::create_directories(entry.parent_path());
    std::ofstream(entry) << "[Desktop Entry]\nType=Application\nName=Example App\nName[de]=Beispiel\n"
                            "Icon=example-icon\nExec="
                         << misbehave << " opened " << fifo.string()
                         << " %U \"quoted \\\\$arg\" %c %k %i --share=100%%\n[Desktop Action other]\nExec=wrong\n";
    Agent agent({"--extension=" + misbehave + " crash", "--desktop-entry", "org.example.App"},
                "LC_MESSAGES=de_DE.UTF-8");
    agent.waitFor("serving");
    desktop.push(pushWithAlert("open the app"));
    desktop.delivered(1);
    desktop.click(1, "default", "token-2");
    EXPECT_EQ(readFifo(fifo), "token-2|quoted $arg|Beispiel|" + entry.string() + "|--icon|example-icon|--share=100%");
    EXPECT_EQ(agent.stop(SIGTERM), 0);

    // An app that the bus activates is asked to, with the token.
    std::ofstream(entry.parent_path() / "org.example.Activated.desktop")
        << "[Desktop Entry]\nType=Application\nName=Activated\nDBusActivatable=true\nExec=false\n";
    Completion<std::map<std::string, sdbus::Variant>> activated;
    auto app = sdbus::createObject(desktop.connection(), "/org/example/Activated");
    app->registerMethod("Activate")
        .onInterface("org.freedesktop.Application")
        .implementedAs([handler = activated.handler()](const std::map<std::string, sdbus::Variant>& platform) {
            handler(platform);
        });
    app->finishRegistration();
    desktop.connection().requestName("org.example.Activated");
    Agent activating({"--extension=" + misbehave + " crash", "--desktop-entry", "org.example.Activated"});
    activating.waitFor("serving");
    desktop.push(pushWithAlert("activate the app"));
    desktop.delivered(2);
    desktop.click(2, "open", "token-3");
    const auto platform = activated.wait();
    ASSERT_TRUE(platform);
    EXPECT_EQ(platform->at("activation-token").get<std::string>(), "token-3");
    EXPECT_EQ(platform->at("desktop-startup-id").get<std::string>(), "token-3");
}

TEST(Agent, WithoutAConfigurationShowsPushesWithoutTheInbox)
{
    TemporaryDirectory noConfiguration;
    ::setenv("FEXO_RESOURCES_DIR", noConfiguration.path().c_str(), 1);
    Desktop desktop;
    Agent agent({"--memory-limit", extensionMemory, "--desktop-entry", "org.example.App"});
    EXPECT_THAT(agent.waitFor("serving"), HasSubstr("fexo-agent: no badge, withdrawal or mark-read: "));
    const auto id = desktop.push(pushWithAlert("still shown"));
    EXPECT_EQ(contentOf(desktop.delivered(1), id),
              R"({"title":"Original","body":"still shown","rewritten":false,"id":null})");
    desktop.click(1, "default");
    EXPECT_EQ(agent.stop(SIGTERM), 0);
    EXPECT_TRUE(desktop.badges(0).empty());
}

TEST(AgentText, DropsControlsAndBytesThatAreNotUTF8)
{
    using namespace std::string_view_literals;
    EXPECT_EQ(fexo::agent::plainText("a\x00"
                                     "b\r\n\tc\x7f\xc2\x9f\xc2\xa0\xe2\x80\xa8"sv,
                                     true),
              "ab\nc\xc2\xa0\xe2\x80\xa8");
    EXPECT_EQ(fexo::agent::plainText("a\nb", false), "ab");
    EXPECT_EQ(fexo::agent::plainText("\xff\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80"
                                     "ok\xe2\x82",
                                     true),
              "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"
              "\xef\xbf\xbd\xef\xbf\xbdok\xef\xbf\xbd\xef\xbf\xbd");
}

TEST(AgentDesktopEntry, SplitsExecAsAShellWithoutExpansion)
{
    using fexo::agent::shellWords;
    EXPECT_EQ(shellWords("a  'b c' \"d \\\" \\$ \\x\" e\\ f # g"),
              (std::vector<std::string>{"a", "b c", "d \" $ \\x", "e f"}));
    EXPECT_EQ(shellWords("'open"), std::nullopt);
    EXPECT_EQ(shellWords("\"open"), std::nullopt);
}
