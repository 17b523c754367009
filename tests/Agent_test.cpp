#include <support/Completion.hpp>
#include <support/ToolSandbox.hpp>

#include <agent/NotificationAgent.hpp>
#include <common/DeliveredContent.hpp>

#include <gmock/gmock.h>
#include <sdbus-c++/sdbus-c++.h>

#include <sys/stat.h>

#include <condition_variable>
#include <fstream>
#include <map>
#include <mutex>

using namespace fexo::test;
using fexo::agent::agentInterface;
using testing::ElementsAre;
using testing::Pair;

namespace {

const std::filesystem::path fexoTool = FEXO_TOOL_PATH;
const std::filesystem::path agentProgram = fexoTool.parent_path() / "fexo-agent";
const std::string misbehave = std::string(FEXO_TEST_SOURCE_DIR) + "/tests/agent/misbehave";
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) // GCC's names: the suite is built with GCC
const std::string extensionMemory = "1024";                       // the instrumented fexo handle-push needs far more
#else
const std::string extensionMemory = "24";
#endif

nlohmann::json pushWithAlert(const std::string& body)
{
    return {{"recipientId", "nobody"}, {"aps", {{"alert", {{"title", "Original"}, {"body", body}}}}}};
}

// A private session bus on which the mock notification daemon and the agent (run with the
// given arguments) are started by activation, and a client of both.
class AgentBus {
public:
    explicit AgentBus(const std::string& agentArguments)
    {
        const auto& dir = directory_.path();
        std::filesystem::create_directories(dir / "services");
        std::ofstream(dir / "services/notifications.service")
            << "[D-BUS Service]\nName=org.freedesktop.Notifications\n"
               "Exec=/usr/bin/python3 -m dbusmock --session -t notification_daemon\n";
        std::ofstream(dir / "services/agent.service")
            << "[D-BUS Service]\nName=org.fexo.NotificationAgent1\nExec=" << agentProgram.string() << " run "
            << agentArguments << "\n";
        std::ofstream(dir / "bus.conf")
            << "<busconfig><type>session</type><listen>unix:path=" << (dir / "bus").string() << "</listen>"
            << "<auth>EXTERNAL</auth><servicedir>" << (dir / "services").string()
            << "</servicedir><policy context=\"default\">"
            << "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/>"
            << "</policy></busconfig>";
        ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (dir / "bus").string()).c_str(), 1); // inherited
        daemon_ = std::make_unique<ChildProcess>(
            "/usr/bin/dbus-daemon",
            std::vector<std::string>{"--nofork", "--print-address=1", "--config-file=" + (dir / "bus.conf").string()});
        if (daemon_->readLine().empty()) throw std::runtime_error("dbus-daemon did not start");
        connection_ = sdbus::createSessionBusConnection();
        agent_ = sdbus::createProxy(*connection_, fexo::agent::agentBusName, fexo::agent::agentObjectPath);
        agent_->uponSignal("Delivered")
            .onInterface(agentInterface)
            .call([this](const std::string& id, const std::string& title, const std::string& body, bool rewritten) {
                std::lock_guard lock(mutex_);
                delivered_.emplace(id, fexo::tool::DeliveredContent{title, body, rewritten});
                changed_.notify_all();
            });
        agent_->finishRegistration();
        desktop_ = sdbus::createProxy(*connection_, "org.freedesktop.Notifications", "/org/freedesktop/Notifications");
        connection_->enterEventLoopAsync();
    }
    ~AgentBus() { connection_->leaveEventLoop(); }

    std::string push(const std::string& userInfoJSON)
    {
        std::string id;
        agent_->callMethod("Push").onInterface(agentInterface).withArguments(userInfoJSON).storeResultsTo(id);
        return id;
    }
    // Every Delivered signal, once `count` of them arrived (fails the test after `patience`).
    std::multimap<std::string, fexo::tool::DeliveredContent> delivered(std::size_t count)
    {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, patience, [&] { return delivered_.size() >= count; }));
        return delivered_;
    }
    // Summary and body of every Notify call the desktop received.
    std::vector<std::pair<std::string, std::string>> notifications()
    {
        std::vector<sdbus::Struct<std::uint64_t, std::string, std::vector<sdbus::Variant>>> calls;
        desktop_->callMethod("GetCalls").onInterface("org.freedesktop.DBus.Mock").storeResultsTo(calls);
        std::vector<std::pair<std::string, std::string>> shown;
        for (auto& call : calls)
            if (call.get<1>() == "Notify")
                shown.emplace_back(call.get<2>().at(3).get<std::string>(), call.get<2>().at(4).get<std::string>());
        return shown;
    }
    void invokeAction(std::uint32_t notification)
    {
        desktop_->callMethod("EmitSignal")
            .onInterface("org.freedesktop.DBus.Mock")
            .withArguments("org.freedesktop.Notifications", "ActionInvoked", "us",
                           std::vector<sdbus::Variant>{notification, std::string("default")});
    }

private:
    TemporaryDirectory directory_;
    std::unique_ptr<ChildProcess> daemon_;
    std::unique_ptr<sdbus::IConnection> connection_;
    std::unique_ptr<sdbus::IProxy> agent_;
    std::unique_ptr<sdbus::IProxy> desktop_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::multimap<std::string, fexo::tool::DeliveredContent> delivered_;
};

} // namespace

// The agent is only ever started by activation here: the first Push starts it.
TEST(Agent, ShowsTheServersContentOnceElseTheOriginalAfterTheExtensionGaveUp)
{
    ToolSandbox sandbox(fexoTool);
    sandbox.serve();
    const auto push = sandbox.queueNotification("dev-1", "Hello", "Ann");
    AgentBus bus("--memory-limit " + extensionMemory);

    auto shown = sandbox.run({"agent", "push", "-"}, push.dump());
    EXPECT_EQ(shown.exitCode, 0) << shown.standardError;
    EXPECT_EQ(shown.standardOutput, R"({"title":"Ann","body":"Hello","rewritten":true,"id":null})"
                                    "\n");

    sandbox.configure("http://127.0.0.1:1"); // nothing listens there
    shown = sandbox.run({"agent", "push", "-"}, pushWithAlert("Hi").dump());
    EXPECT_EQ(shown.exitCode, 3) << shown.standardError;
    EXPECT_EQ(shown.standardOutput, R"({"title":"Original","body":"Hi","rewritten":false,"id":null})"
                                    "\n");
    EXPECT_THAT(bus.notifications(), ElementsAre(Pair("Ann", "Hello"), Pair("Original", "Hi")));
}

TEST(Agent, ShowsTheOriginalOnceWhenTheExtensionMisbehaves)
{
    const std::pair<std::string, std::string> cases[] = {
        {"crash", ""}, {"fail", ""}, {"garbage", ""}, {"hang", " --time-limit 0.3"}, {"memory", " --memory-limit 64"}};
    for (const auto& [behaviour, limits] : cases) {
        SCOPED_TRACE(behaviour);
        AgentBus bus("--extension '" + misbehave + " " + behaviour + "'" + limits);
        const auto id = bus.push(pushWithAlert(behaviour).dump());
        const auto delivered = bus.delivered(1);
        ASSERT_EQ(delivered.count(id), 1u);
        EXPECT_EQ(fexo::tool::deliveredContentJSON(delivered.find(id)->second),
                  R"({"title":"Original","body":")" + behaviour + R"(","rewritten":false,"id":null})");
        EXPECT_THAT(bus.notifications(), ElementsAre(Pair("Original", behaviour)));
    }
}

TEST(Agent, RefusesWhatItCannotTakeWithItsErrorAndDeliversWhatItTook)
{
    AgentBus bus("--extension '" + misbehave + " hang' --time-limit 0.3 --concurrency 1 --queue 2");
    const auto refusal = [&](const std::string& push) {
        try {
            bus.push(push);
            return std::string("accepted");
        } catch (const sdbus::Error& error) {
            return error.getName();
        }
    };
    EXPECT_EQ(refusal("{\"aps\":"), "org.fexo.NotificationAgent1.Error.NotJSON");
    EXPECT_EQ(refusal("[1]"), "org.fexo.NotificationAgent1.Error.NotJSON");
    EXPECT_EQ(refusal(std::string(fexo::agent::maximumPushBytes + 1, ' ')),
              "org.fexo.NotificationAgent1.Error.TooLarge");
    std::map<std::string, int> outcomes;
    for (int i = 0; i < 8; ++i) ++outcomes[refusal(pushWithAlert(std::to_string(i)).dump())];
    // One running and two waiting; a third may be taken when the first push already runs.
    EXPECT_GE(outcomes["org.fexo.NotificationAgent1.Error.QueueFull"], 5);
    EXPECT_EQ(outcomes["accepted"] + outcomes["org.fexo.NotificationAgent1.Error.QueueFull"], 8);
    EXPECT_EQ(bus.delivered(outcomes["accepted"]).size(), static_cast<std::size_t>(outcomes["accepted"]));
    EXPECT_EQ(bus.notifications().size(), static_cast<std::size_t>(outcomes["accepted"]));
}

TEST(Agent, RunsTheHostAppCommandOnTheDefaultActionOfItsOwnNotificationOnly)
{
    TemporaryDirectory fifoDirectory;
    const auto fifo = fifoDirectory.path() / "opened";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    AgentBus bus("--extension '" + misbehave + " crash' --host-command 'echo $FEXO_REQUEST_ID > " + fifo.string() +
                 "'");
    const auto id = bus.push(pushWithAlert("open me").dump());
    bus.delivered(1);
    bus.invokeAction(99); // another application's notification
    bus.invokeAction(1);  // the mock daemon numbers notifications from 1
    const auto opened = ChildProcess::run("/bin/cat", {fifo.string()});
    EXPECT_EQ(opened.standardOutput, id + "\n");
}
