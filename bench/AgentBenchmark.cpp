// The agent's figures: one push from the Push call to the Delivered signal against the same
// extension program run directly, 100 pushes at once against 100 direct runs with the same
// parallelism, and the agent's resident memory idle and after 1,000 pushes. A private session
// bus with the mock notification daemon plays the desktop; the loopback server the FeXO server.
// Usage: bench_agent FEXO_AGENT FEXO

#include "BenchSupport.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <set>
#include <thread>

extern char** environ;
using Clock = std::chrono::steady_clock;

namespace {

// Runs `program handle-push` to its end with `input` on standard input.
void runDirectly(const std::string& program, const std::string& input)
{
    // Close-on-exec: runners on other threads spawn at the same time, and a write end inherited by
    // another extension keeps this one from ever seeing the end of its input.
    int pipeEnds[2];
    if (::pipe2(pipeEnds, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[0], 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    const char* argv[] = {program.c_str(), "handle-push", nullptr};
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, const_cast<char**>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeEnds[0]);
    if (spawned != 0) {
        ::close(pipeEnds[1]);
        throw std::runtime_error("cannot run " + program);
    }
    [[maybe_unused]] auto written = ::write(pipeEnds[1], input.data(), input.size());
    ::close(pipeEnds[1]);
    ::waitpid(pid, nullptr, 0);
}

std::uint64_t residentKiB(std::uint32_t pid)
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

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: bench_agent FEXO_AGENT FEXO" << std::endl;
        return 2;
    }
    const std::string agent = argv[1], fexo = argv[2];
    fexo::bench::TemporaryDirectory directory;
    const auto& dir = directory.path();
    fexo::bench::BenchServer server;
    fexo::bench::installConfiguration(dir / "resources", dir / "groups", server.baseURL());
    ::setenv("FEXO_RESOURCES_DIR", (dir / "resources").c_str(), 1);
    ::setenv("FEXO_APP_GROUPS_DIR", (dir / "groups").c_str(), 1);

    std::filesystem::create_directories(dir / "services");
    std::ofstream(dir / "services/n.service") << "[D-BUS Service]\nName=org.freedesktop.Notifications\n"
                                                 "Exec=/usr/bin/python3 -m dbusmock --session -t notification_daemon\n";
    std::ofstream(dir / "services/a.service")
        << "[D-BUS Service]\nName=org.fexo.NotificationAgent1\nExec=" << agent << " run\n";
    std::ofstream(dir / "bus.conf") << "<busconfig><type>session</type><listen>unix:path=" << (dir / "bus").string()
                                    << "</listen><auth>EXTERNAL</auth><servicedir>" << (dir / "services").string()
                                    << "</servicedir><policy context=\"default\"><allow send_destination=\"*\" "
                                       "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/></policy>"
                                       "</busconfig>";
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (dir / "bus").string()).c_str(), 1);
    const std::string config = "--config-file=" + (dir / "bus.conf").string();
    const char* daemonArgv[] = {"dbus-daemon", "--nofork", config.c_str(), nullptr};
    pid_t daemon = 0;
    posix_spawn_file_actions_t quiet; // the agent logs, and the mock daemon prints, through the daemon's outputs
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&quiet, 2, "/dev/null", O_WRONLY, 0);
    posix_spawnp(&daemon, "dbus-daemon", &quiet, nullptr, const_cast<char**>(daemonArgv), environ);
    posix_spawn_file_actions_destroy(&quiet);
    while (!std::filesystem::exists(dir / "bus")) std::this_thread::sleep_for(std::chrono::milliseconds(10));

    auto connection = sdbus::createSessionBusConnection();
    auto proxy = sdbus::createProxy(*connection, "org.fexo.NotificationAgent1", "/org/fexo/NotificationAgent1");
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, Clock::time_point> delivered;
    proxy->uponSignal("Delivered")
        .onInterface("org.fexo.NotificationAgent1")
        .call([&](const std::string& id, const std::string&, const std::string&, bool) {
            std::lock_guard lock(mutex);
            delivered[id] = Clock::now();
            changed.notify_all();
        });
    proxy->finishRegistration();
    connection->enterEventLoopAsync();
    const auto push = [&] {
        std::string id;
        proxy->callMethod("Push")
            .onInterface("org.fexo.NotificationAgent1")
            .withArguments(fexo::bench::pushUserInfoJSON)
            .storeResultsTo(id);
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

    waitFor({push()}); // starts the agent and the mock daemon
    std::vector<double> agentTimes, directTimes;
    for (int i = 0; i < 200; ++i) {
        auto start = Clock::now();
        agentTimes.push_back(seconds(waitFor({push()}) - start));
        start = Clock::now();
        runDirectly(fexo, fexo::bench::pushUserInfoJSON);
        directTimes.push_back(seconds(Clock::now() - start));
    }
    report("agent: one push, Push to Delivered (median of 200)", median(agentTimes), median(directTimes), 1.2);
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
    std::vector<std::thread> runners;
    for (int worker = 0; worker < 4; ++worker)
        runners.emplace_back([&] {
            for (int i = 0; i < 25; ++i) runDirectly(fexo, fexo::bench::pushUserInfoJSON);
        });
    for (auto& runner : runners) runner.join();
    report("agent: 100 pushes at once, to the last Delivered", burst, seconds(Clock::now() - start), 1.2);

    std::uint32_t agentPid = 0;
    auto bus = sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    bus->callMethod("GetConnectionUnixProcessID")
        .onInterface("org.freedesktop.DBus")
        .withArguments(std::string("org.fexo.NotificationAgent1"))
        .storeResultsTo(agentPid);
    const auto idle = residentKiB(agentPid);
    for (int round = 0; round < 10; ++round) {
        ids.clear();
        for (int i = 0; i < 100; ++i) ids.insert(push());
        waitFor(ids);
    }
    const auto after = residentKiB(agentPid);
    const long long growth = static_cast<long long>(after) - static_cast<long long>(idle);
    std::cout << "agent: resident memory idle " << idle << " KiB, after 1,000 more pushes " << after << " KiB, growth "
              << growth << " KiB (goal <= 1024 KiB)" << std::endl;
    fexo::bench::appendSummary("agent: resident memory over 1,000 pushes", std::to_string(after) + " KiB",
                               std::to_string(idle) + " KiB idle", std::to_string(growth) + " KiB", "<= 1024 KiB",
                               growth <= 1024 ? "met" : "missed");
    connection->leaveEventLoop();
    ::kill(daemon, SIGTERM);
    ::waitpid(daemon, nullptr, 0);
    return 0;
}
