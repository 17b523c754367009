// The agent's figures, on a private session bus with a notification daemon in this process (it
// answers at once and notes when each call arrives) and the loopback server as the FeXO server:
// - one push from the Push call to the Delivered signal, acceptance flushed to disk, against the
//   same extension program run directly;
// - 100 pushes at once (concurrency 1) to the last Delivered, against 100 direct runs one after
//   another;
// - a mark-read in this process to the daemon's CloseNotification call, with few and with 1,000
//   notifications shown;
// - the agent's resident memory idle and after 1,000 pushes;
// - a restart after kill -9 with 1,000 accepted pushes waiting, to the last Delivered, counting
//   pushes lost and shown twice.
// Usage: bench_agent FEXO_AGENT FEXO

#include "BenchSupport.hpp"

#include <FeXONotificationService/FeXOService.hpp>

#include <sdbus-c++/sdbus-c++.h>

#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <spawn.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <set>

extern char** environ;
using Clock = std::chrono::steady_clock;

namespace {

// Starts `argv` with its standard output and error going to `log` (or /dev/null), its input
// from `input` when not -1; the child's id.
pid_t spawn(const std::vector<std::string>& argv, const std::string& log = "/dev/null", int input = -1)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input >= 0) posix_spawn_file_actions_adddup2(&actions, input, 0);
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    std::vector<char*> words;
    for (const auto& word : argv) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = posix_spawnp(&pid, words[0], &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error("cannot run " + argv.front());
    return pid;
}

// Runs `program handle-push` to its end with `input` on standard input.
void runDirectly(const std::string& program, const std::string& input)
{
    int pipeEnds[2];
    if (::pipe2(pipeEnds, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    const pid_t pid = spawn({program, "handle-push"}, "/dev/null", pipeEnds[0]);
    ::close(pipeEnds[0]);
    [[maybe_unused]] auto written = ::write(pipeEnds[1], input.data(), input.size());
    ::close(pipeEnds[1]);
    ::waitpid(pid, nullptr, 0);
}

std::uint64_t residentKiB(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stoull(line.substr(6));
    return 0;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

std::string milliseconds(double seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2f ms", seconds * 1000);
    return text;
}

void report(const std::string& title, double project, double baseline, double goal)
{
    char ratio[32], goalText[32];
    std::snprintf(ratio, sizeof ratio, "%.2fx", project / baseline);
    std::snprintf(goalText, sizeof goalText, "<= %.1fx", goal);
    std::cout << title << ": agent " << milliseconds(project) << ", direct " << milliseconds(baseline) << ", " << ratio
              << " (goal " << goalText << ")" << std::endl;
    fexo::bench::appendSummary(title, milliseconds(project), milliseconds(baseline), ratio, goalText,
                               project / baseline <= goal ? "met" : "missed");
}

std::string fileSystemOf(const std::filesystem::path& path)
{
    struct statfs status { };
    if (::statfs(path.c_str(), &status) != 0) return "unknown";
    switch (static_cast<unsigned long>(status.f_type)) {
    case EXT4_SUPER_MAGIC:
        return "ext4";
    case TMPFS_MAGIC:
        return "tmpfs";
    case BTRFS_SUPER_MAGIC:
        return "btrfs";
    case XFS_SUPER_MAGIC:
        return "xfs";
    case OVERLAYFS_SUPER_MAGIC:
        return "overlayfs";
    default: {
        char text[32];
        std::snprintf(text, sizeof text, "type 0x%lx", static_cast<unsigned long>(status.f_type));
        return text;
    }
    }
}

// org.freedesktop.Notifications on a connection of its own: answers at once, numbers from 1, and
// notes every Notify and when each CloseNotification arrives.
class Desktop {
public:
    Desktop()
    {
        connection_ = sdbus::createSessionBusConnection("org.freedesktop.Notifications");
        object_ = sdbus::createObject(*connection_, "/org/freedesktop/Notifications");
        const char* interface = "org.freedesktop.Notifications";
        object_->registerMethod("GetCapabilities").onInterface(interface).implementedAs([] {
            return std::vector<std::string>{"body", "body-markup", "actions"};
        });
        object_->registerMethod("GetServerInformation").onInterface(interface).implementedAs([] {
            return std::make_tuple(std::string("bench"), std::string("fexo"), std::string("1"), std::string("1.2"));
        });
        object_->registerMethod("Notify").onInterface(interface).implementedAs(
            [this](const std::string&, std::uint32_t, const std::string&, const std::string&, const std::string&,
                   const std::vector<std::string>&, const std::map<std::string, sdbus::Variant>&, std::int32_t) {
                std::lock_guard lock(mutex_);
                ++notified_;
                return ++lastId_;
            });
        object_->registerMethod("CloseNotification").onInterface(interface).implementedAs([this](std::uint32_t id) {
            {
                std::lock_guard lock(mutex_);
                closed_[id] = Clock::now();
            }
            changed_.notify_all();
            object_->emitSignal("NotificationClosed")
                .onInterface("org.freedesktop.Notifications")
                .withArguments(id, std::uint32_t{3});
        });
        object_->registerSignal("NotificationClosed")
            .onInterface(interface)
            .withParameters<std::uint32_t, std::uint32_t>();
        object_->finishRegistration();
        connection_->enterEventLoopAsync();
    }
    ~Desktop() { connection_->leaveEventLoop(); }

    std::uint32_t lastId()
    {
        std::lock_guard lock(mutex_);
        return lastId_;
    }
    std::uint64_t notified()
    {
        std::lock_guard lock(mutex_);
        return notified_;
    }
    // When CloseNotification(id) arrived (waits for it).
    Clock::time_point closedAt(std::uint32_t id)
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return closed_.count(id) > 0; });
        return closed_[id];
    }

private:
    std::unique_ptr<sdbus::IConnection> connection_;
    std::unique_ptr<sdbus::IObject> object_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint32_t lastId_ = 0;
    std::uint64_t notified_ = 0;
    std::map<std::uint32_t, Clock::time_point> closed_;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: bench_agent FEXO_AGENT FEXO" << std::endl;
        return 2;
    }
    const std::string agentProgram = argv[1], fexo = argv[2];
    fexo::bench::TemporaryDirectory directory;
    const auto& dir = directory.path();
    fexo::bench::BenchServer server;
    fexo::bench::installConfiguration(dir / "resources", dir / "groups", server.baseURL());
    ::setenv("FEXO_RESOURCES_DIR", (dir / "resources").c_str(), 1);
    ::setenv("FEXO_APP_GROUPS_DIR", (dir / "groups").c_str(), 1);
    ::setenv("XDG_STATE_HOME", (dir / "state").c_str(), 1);
    std::filesystem::create_directories(dir / "state");
    std::cout << "agent: its state on " << fileSystemOf(dir / "state") << " (" << (dir / "state").string() << ")"
              << std::endl;

    std::ofstream(dir / "bus.conf") << "<busconfig><type>session</type><listen>unix:path=" << (dir / "bus").string()
                                    << "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow "
                                       "send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow "
                                       "own=\"*\"/></policy></busconfig>";
    int address[2];
    if (::pipe2(address, O_CLOEXEC) != 0) return 1;
    const std::string printAddress = "--print-address=" + std::to_string(address[1]);
    ::fcntl(address[1], F_SETFD, 0); // inherited by the bus daemon, which prints its address there
    const pid_t daemon =
        spawn({"dbus-daemon", "--nofork", "--config-file=" + (dir / "bus.conf").string(), printAddress});
    ::close(address[1]);
    // Its address line once it listens; the pipe stays open for as long as the daemon runs (it
    // stops answering when its address pipe is closed).
    for (char byte = 0; ::read(address[0], &byte, 1) == 1 && byte != '\n';) { }
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (dir / "bus").string()).c_str(), 1);

    auto desktop = std::make_unique<Desktop>();
    auto connection = sdbus::createSessionBusConnection();
    auto proxy = sdbus::createProxy(*connection, "org.fexo.NotificationAgent1", "/org/fexo/NotificationAgent1");
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, Clock::time_point> delivered;
    bool agentOnBus = false;
    proxy->uponSignal("Delivered")
        .onInterface("org.fexo.NotificationAgent1")
        .call([&](const std::string& id, const std::string&, const std::string&, bool) {
            std::lock_guard lock(mutex);
            delivered[id] = Clock::now();
            changed.notify_all();
        });
    proxy->finishRegistration();
    auto owner = connection->addMatch("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
                                      "arg0='org.fexo.NotificationAgent1'",
                                      [&](sdbus::Message& message) {
                                          std::string name, previous, next;
                                          message >> name >> previous >> next;
                                          std::lock_guard lock(mutex);
                                          agentOnBus = !next.empty();
                                          changed.notify_all();
                                      });
    connection->enterEventLoopAsync();
    const auto startAgent = [&](std::vector<std::string> options) {
        std::vector<std::string> words{agentProgram, "run", "--desktop-entry", "org.fexo.Bench"};
        words.insert(words.end(), options.begin(), options.end());
        const pid_t pid = spawn(words, (dir / "agent.log").string());
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return agentOnBus; });
        return pid;
    };
    const auto killAgent = [&](pid_t pid) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return !agentOnBus; });
    };
    const auto push = [&](const std::string& json = fexo::bench::pushUserInfoJSON) {
        std::string id;
        proxy->callMethod("Push").onInterface("org.fexo.NotificationAgent1").withArguments(json).storeResultsTo(id);
        return id;
    };
    const auto waitFor = [&](const std::set<std::string>& ids) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] {
            return std::all_of(ids.begin(), ids.end(), [&](const auto& id) { return delivered.count(id) > 0; });
        });
        Clock::time_point last{};
        for (const auto& id : ids) last = std::max(last, delivered[id]);
        return last;
    };
    const auto seconds = [](Clock::duration duration) { return std::chrono::duration<double>(duration).count(); };
    // A mark-read in this process (another than the agent's) to the daemon's CloseNotification.
    const auto markReadToClose = [&](int rounds) {
        std::vector<double> times;
        fexo::FeXOService service;
        for (int round = 0; round < rounds; ++round) {
            waitFor({push()});
            const std::uint32_t notification = desktop->lastId();
            const auto page = service.fetchNotifications(1);
            if (page.isFailure() || page.value().records.empty() || !page.value().records[0].id)
                throw std::runtime_error("no record stored");
            const auto start = Clock::now();
            service.markNotificationAsRead(*page.value().records[0].id);
            times.push_back(seconds(desktop->closedAt(notification) - start));
        }
        return times;
    };

    pid_t agent = startAgent({});
    waitFor({push()});
    std::vector<double> agentTimes, directTimes;
    for (int i = 0; i < 200; ++i) {
        auto start = Clock::now();
        agentTimes.push_back(seconds(waitFor({push()}) - start));
        start = Clock::now();
        runDirectly(fexo, fexo::bench::pushUserInfoJSON);
        directTimes.push_back(seconds(Clock::now() - start));
    }
    report("agent: one push, Push to Delivered, durable acceptance (median of 200)", median(agentTimes),
           median(directTimes), 1.3);
    if (const auto samples = fexo::bench::samplesDirectory()) {
        std::ofstream out(*samples / "agent_push_latency.csv");
        out << "side,microseconds\n";
        for (const double time : agentTimes) out << "project," << time * 1e6 << '\n';
        for (const double time : directTimes) out << "baseline," << time * 1e6 << '\n';
    }

    auto start = Clock::now();
    std::set<std::string> ids;
    for (int i = 0; i < 100; ++i) ids.insert(push());
    const double burst = seconds(waitFor(ids) - start);
    start = Clock::now();
    for (int i = 0; i < 100; ++i) runDirectly(fexo, fexo::bench::pushUserInfoJSON);
    report("agent: 100 pushes at once, to the last Delivered, concurrency 1 (against 100 direct runs in turn)", burst,
           seconds(Clock::now() - start), 1.3);

    // A fresh agent, so that few notifications are shown (it forgets none of those it showed
    // before, and this daemon never closes one itself).
    killAgent(agent);
    std::filesystem::remove_all(dir / "state/fexo");
    agent = startAgent({});
    const auto fewShown = markReadToClose(30);

    const auto idle = residentKiB(agent);
    for (int round = 0; round < 10; ++round) {
        ids.clear();
        for (int i = 0; i < 100; ++i) ids.insert(push());
        waitFor(ids);
    }
    const auto after = residentKiB(agent);
    const long long growth = static_cast<long long>(after) - static_cast<long long>(idle);
    std::cout << "agent: resident memory idle " << idle << " KiB, after 1,000 more pushes " << after << " KiB, growth "
              << growth << " KiB (goal <= 1024 KiB)" << std::endl;
    fexo::bench::appendSummary("agent: resident memory over 1,000 pushes", std::to_string(after) + " KiB",
                               std::to_string(idle) + " KiB idle", std::to_string(growth) + " KiB", "<= 1024 KiB",
                               growth <= 1024 ? "met" : "missed");

    const auto manyShown = markReadToClose(30);
    for (const auto& [label, times] : {std::pair{"30 shown at most", fewShown}, std::pair{"1,000 shown", manyShown}}) {
        std::cout << "agent: a mark-read in another process to CloseNotification, " << label << ": median "
                  << milliseconds(median(times)) << ", slowest "
                  << milliseconds(*std::max_element(times.begin(), times.end())) << " (report)" << std::endl;
        fexo::bench::appendSummary(std::string("agent: mark-read in another process to CloseNotification, ") + label,
                                   milliseconds(median(times)), "-", "-", "report", "-");
    }

    // 1,000 pushes accepted and waiting behind one whose extension never ends; kill -9; then an
    // agent with the usual extension takes them up.
    killAgent(agent);
    agent = startAgent({"--extension", "sleep 3600", "--queue", "2000"});
    ids.clear();
    for (int i = 0; i < 1001; ++i) ids.insert(push());
    killAgent(agent);
    const auto shownBefore = desktop->notified();
    start = Clock::now();
    agent = startAgent({});
    const double restart = seconds(waitFor(ids) - start);
    const auto shown = desktop->notified() - shownBefore;
    std::size_t lost = 0;
    {
        std::lock_guard lock(mutex);
        for (const auto& id : ids) lost += delivered.count(id) == 0;
    }
    // Every push delivered and exactly one Notify per push: none is shown twice.
    const long long twice = static_cast<long long>(shown) - static_cast<long long>(ids.size() - lost);
    std::cout << "agent: restart after kill -9 with 1,000 accepted pushes waiting (and one running): last Delivered "
              << milliseconds(restart) << " after the start; " << lost << " lost, " << twice
              << " shown twice (report; goal 0 and 0)" << std::endl;
    fexo::bench::appendSummary("agent: restart after kill -9 with 1,000 pushes waiting, to the last Delivered",
                               milliseconds(restart), "-",
                               std::to_string(lost) + " lost, " + std::to_string(twice) + " twice", "0 lost, 0 twice",
                               lost == 0 && twice == 0 ? "met" : "missed");

    ::kill(agent, SIGTERM);
    ::waitpid(agent, nullptr, 0);
    desktop.reset();
    connection->leaveEventLoop();
    ::kill(daemon, SIGTERM);
    ::waitpid(daemon, nullptr, 0);
    ::close(address[0]);
    return 0;
}
