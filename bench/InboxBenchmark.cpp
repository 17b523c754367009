// The inbox: a page and the unread count against the same SQL on a bare connection, a page
// against reading everything and sorting; the wake of an observer in another process against a
// bare inotify wake; and what an idle observer costs.

#include "BenchSupport.hpp"

#include <FeXONotificationService/DataRepository.hpp>
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/NotificationInbox.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/StoreObserver.hpp>
#include <FeXOPlatform/UUID.hpp>

#include <sqlite3.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace fexo::bench {
namespace {

constexpr std::size_t pageSize = 50;
// The wakes are measured in rounds, the bare wake, the project and the observer's own call taking
// turns (which goes first turns with the round), so that a spell of load on the machine moves a
// round and not the figure.
constexpr int wakeRounds = 10;
constexpr int wakesPerRound = 100;

void check(bool ok, const char* what)
{
    if (!ok) throw std::runtime_error(what);
}

std::int64_t nowNanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// A store of `count` records with spread dates, reached through the library (which builds the
// index on opening) and through a bare connection on the same file.
struct Store {
    TemporaryDirectory directory;
    std::shared_ptr<UserDefaultsDataStorage> storage = std::make_shared<UserDefaultsDataStorage>();
    DataRepository repository{storage};
    NotificationInbox inbox{storage};
    sqlite3* bare = nullptr;
    sqlite3_stmt* firstPage = nullptr;
    sqlite3_stmt* unread = nullptr;

    explicit Store(std::size_t count)
    {
        ::setenv("FEXO_APP_GROUPS_DIR", directory.path().c_str(), 1);
        UserDefaults& defaults = storage->userDefaults();
        check(defaults.performExclusively([&] {
            for (std::size_t i = 0; i < count; ++i) {
                const std::string id = UUID().uuidString();
                defaults.setData(recordJSON(id, 700000000.0 + static_cast<double>(i % 5000)), "response_" + id);
            }
        }),
              "cannot fill the store");
        check(sqlite3_open_v2(defaults.databasePath().c_str(), &bare, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK,
              "open");
        const auto& queries = NotificationInbox::recordIndex().queries();
        check(sqlite3_prepare_v3(bare, queries.firstPage.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &firstPage, nullptr) ==
                  SQLITE_OK,
              "prepare page");
        check(sqlite3_prepare_v3(bare, queries.unflagged.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &unread, nullptr) ==
                  SQLITE_OK,
              "prepare count");
    }
    ~Store()
    {
        sqlite3_finalize(firstPage);
        sqlite3_finalize(unread);
        sqlite3_close_v2(bare);
    }
};

Store& store(std::size_t count)
{
    static std::map<std::size_t, std::unique_ptr<Store>> stores;
    auto& slot = stores[count];
    if (!slot) slot = std::make_unique<Store>(count);
    return *slot;
}

void projectPage(benchmark::State& state, std::size_t count)
{
    Store& s = store(count);
    for (auto _ : state) {
        auto page = s.inbox.page(pageSize, {});
        if (page.value().records.size() != pageSize) state.SkipWithError("short page");
        benchmark::DoNotOptimize(page);
    }
}

// The same SQL (one row more, as the project reads), each record decoded by the same decoder.
void barePage(benchmark::State& state, std::size_t count)
{
    Store& s = store(count);
    for (auto _ : state) {
        std::vector<Response> records;
        sqlite3_reset(s.firstPage);
        sqlite3_bind_int64(s.firstPage, 1, pageSize + 1);
        while (sqlite3_step(s.firstPage) == SQLITE_ROW && records.size() < pageSize) {
            const auto* bytes = static_cast<const char*>(sqlite3_column_blob(s.firstPage, 1));
            const std::string_view value(bytes, static_cast<std::size_t>(sqlite3_column_bytes(s.firstPage, 1)));
            records.push_back(JSONDecoder{}.decode<Response>(value));
        }
        benchmark::DoNotOptimize(records);
    }
}

// What a host app did before: every record, then a sort by date.
void fetchAllAndSort(benchmark::State& state, std::size_t count)
{
    Store& s = store(count);
    for (auto _ : state) {
        auto records = s.repository.fetchAllNotifications();
        // The date read directly, which a host app cannot do: a floor under what it would pay.
        std::partial_sort(records.begin(), records.begin() + pageSize, records.end(),
                          [](const Response& a, const Response& b) {
                              return ResponseAccess::createdAt(a) > ResponseAccess::createdAt(b);
                          });
        records.resize(pageSize);
        benchmark::DoNotOptimize(records);
    }
}

void projectUnread(benchmark::State& state, std::size_t count)
{
    Store& s = store(count);
    for (auto _ : state) benchmark::DoNotOptimize(s.inbox.unreadCount());
}

// What an observation's callback waits for after another process's commit: the counts read by a
// connection whose page cache SQLite has just dropped (another connection wrote one record, not
// timed), against the same read with nothing changed.
void countsRead(benchmark::State& state, std::size_t count, bool afterCommit)
{
    Store& s = store(count);
    sqlite3_stmt* upsert = nullptr;
    check(sqlite3_prepare_v2(s.bare,
                             "INSERT INTO defaults (key, kind, value) VALUES ('response_counts', 5, ?1) "
                             "ON CONFLICT (key) DO UPDATE SET value = excluded.value",
                             -1, &upsert, nullptr) == SQLITE_OK,
          "prepare write");
    const std::string record = recordJSON("counts", 800000000.0);
    for (auto _ : state) {
        if (afterCommit) {
            sqlite3_reset(upsert);
            sqlite3_bind_blob(upsert, 1, record.data(), static_cast<int>(record.size()), SQLITE_STATIC);
            check(sqlite3_step(upsert) == SQLITE_DONE, "write");
        }
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(s.inbox.counts());
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    sqlite3_finalize(upsert);
}

void bareUnread(benchmark::State& state, std::size_t count)
{
    Store& s = store(count);
    for (auto _ : state) {
        sqlite3_reset(s.unread);
        check(sqlite3_step(s.unread) == SQLITE_ROW, "count");
        benchmark::DoNotOptimize(sqlite3_column_int64(s.unread, 0));
    }
}

// ---- waking another process ----

struct Pipe {
    int fds[2] = {-1, -1};
    Pipe() { check(::pipe(fds) == 0, "pipe"); }
    ~Pipe() { ::close(fds[0]), ::close(fds[1]); }
    template <class T>
    void put(const T& value)
    {
        check(::write(fds[1], &value, sizeof value) == sizeof value, "pipe write");
    }
    template <class T>
    T take()
    {
        T value{};
        check(::read(fds[0], &value, sizeof value) == sizeof value, "pipe read");
        return value;
    }
};

// The cores of the wake measurement: the first and the last this process may use (the same one
// on a single core).
int readerCore = 0;
int writerCore = 0;

void pinTo(int core)
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(core, &one);
    check(::sched_setaffinity(0, sizeof one, &one) == 0, "affinity");
}

// A child that, `wakesPerRound` times, waits for the go, runs `change` and sends the time it returned,
// or, with `fromStart`, the time it was called.
pid_t startChanger(Pipe& go, Pipe& returned, const std::function<void()>& change, bool fromStart = false)
{
    const pid_t pid = ::fork();
    check(pid >= 0, "fork");
    if (pid == 0) {
        try {
            pinTo(writerCore);
            for (int i = 0; i < wakesPerRound; ++i) {
                (void)go.take<char>();
                const auto started = nowNanoseconds();
                change();
                returned.put(fromStart ? started : nowNanoseconds());
            }
        } catch (...) {
            std::_Exit(1);
        }
        std::_Exit(0);
    }
    return pid;
}

double medianOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// One byte written with write(2) to a watched file, to the other process reading the event. Timed
// from the call: the event is queued inside write(2), so a reader on another core often has it
// before write(2) returns.
std::vector<double> bareWake(const std::filesystem::path& directory)
{
    const auto file = directory / "bare-signal";
    std::ofstream(file).put('\n');
    const int inotify = ::inotify_init1(IN_CLOEXEC);
    check(inotify >= 0 && ::inotify_add_watch(inotify, file.c_str(), IN_MODIFY) >= 0, "inotify");
    Pipe go;
    Pipe returned;
    const int fd = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
    const pid_t child = startChanger(
        go, returned, [fd] { check(::pwrite(fd, "\n", 1, 0) == 1, "write"); }, true);
    std::vector<double> latencies;
    alignas(inotify_event) char buffer[4096];
    for (int i = 0; i < wakesPerRound; ++i) {
        go.put('g');
        check(::read(inotify, buffer, sizeof buffer) > 0, "inotify read");
        const auto woke = nowNanoseconds();
        latencies.push_back(std::max<double>(0, static_cast<double>(woke - returned.take<std::int64_t>()) / 1000));
    }
    ::waitpid(child, nullptr, 0);
    ::close(fd);
    ::close(inotify);
    return latencies;
}

// From the return of a write in one process to the callback in another; with `withoutCounts`,
// the observer thread's own call, before the counts are read.
std::vector<double> projectWake(bool withoutCounts = false)
{
    Pipe go;
    Pipe returned;
    int next = 0;
    const pid_t child = startChanger(go, returned, [&next] {
        static FeXOService service; // opened in the child, after the fork
        service.write(Response(Date(1), {}, {}, {}, "wake-" + std::to_string(next++ % 64)));
    });
    std::mutex mutex;
    std::condition_variable called;
    std::int64_t calledAt = 0;
    FeXOService service;
    const auto onCall = [&] {
        std::lock_guard lock(mutex);
        calledAt = nowNanoseconds();
        called.notify_all();
    };
    NotificationObservation observation;
    StoreObserver::Token token = 0;
    if (withoutCounts) {
        std::string whyNot;
        token = StoreObserver::add(UserDefaults::open(appGroup)->databasePath(), onCall, whyNot);
    } else {
        observation = service.observeNotifications([&](NotificationCounts) { onCall(); });
    }
    check(observation || token != 0, "observe");
    std::vector<double> latencies;
    for (int i = 0; i < wakesPerRound; ++i) {
        {
            std::lock_guard lock(mutex);
            calledAt = 0;
        }
        go.put('g');
        const auto returnedAt = returned.take<std::int64_t>();
        std::unique_lock lock(mutex);
        check(called.wait_for(lock, std::chrono::seconds(10), [&] { return calledAt != 0; }), "no callback");
        latencies.push_back(std::max<double>(0, static_cast<double>(calledAt - returnedAt) / 1000));
    }
    ::waitpid(child, nullptr, 0);
    StoreObserver::remove(token);
    return latencies;
}

// Voluntary context switches of every thread of this process but the calling one.
std::uint64_t otherThreadsSwitches()
{
    std::uint64_t total = 0;
    const auto self = std::to_string(::gettid());
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == self) continue;
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0) total += std::stoull(line.substr(24));
        }
    }
    return total;
}

void report(const std::string& title, const std::string& project, const std::string& baseline, const std::string& ratio,
            double value, double goal)
{
    const bool met = goal == 0 || value <= goal;
    std::printf("%-70s %14s %14s %10s%s\n", title.c_str(), project.c_str(), baseline.c_str(), ratio.c_str(),
                goal == 0 ? "" : (met ? "  met" : "  NOT MET"));
    char goalText[32] = "";
    if (goal != 0) std::snprintf(goalText, sizeof goalText, "<= %.1fx", goal);
    appendSummary(title, project, baseline, ratio, goal == 0 ? "report" : goalText,
                  goal == 0 ? "-" : (met ? "met" : "missed"));
}

std::string microseconds(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f us", value);
    return text;
}

void measureWakes(const std::filesystem::path& directory)
{
    ::setenv("FEXO_APP_GROUPS_DIR", (directory / "groups").c_str(), 1);
    // A wake between two processes on one core is a context switch; across cores it is an
    // interrupt to a core that may be asleep, several times slower. Left to the scheduler, each
    // round lands on either at random, so the writer keeps one core and the reader (and the
    // observer thread it starts) the other, on both sides.
    cpu_set_t allowed;
    check(::sched_getaffinity(0, sizeof allowed, &allowed) == 0, "affinity");
    std::vector<int> cores;
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (CPU_ISSET(core, &allowed)) cores.push_back(core);
    }
    readerCore = cores.front();
    writerCore = cores.back();
    pinTo(readerCore);
    enum Side {
        bare,
        project,
        observer,
        sides
    };
    std::vector<double> all[sides];
    std::vector<double> medians[sides];
    std::vector<double> ratios;
    for (int round = 0; round < wakeRounds; ++round) {
        for (int turn = 0; turn < sides; ++turn) {
            const int side = (turn + round) % sides;
            auto latencies = side == bare ? bareWake(directory) : projectWake(side == observer);
            medians[side].push_back(medianOf(latencies));
            all[side].insert(all[side].end(), latencies.begin(), latencies.end());
        }
        ratios.push_back(medians[project].back() / std::max(medians[bare].back(), 0.001));
    }
    const double baseline = medianOf(medians[bare]);
    const double ratio = medianOf(medians[project]) / std::max(baseline, 0.001);
    const auto [low, high] = std::minmax_element(ratios.begin(), ratios.end());
    char text[96];
    std::printf("per-round ratios:");
    for (const double r : ratios) std::printf(" %.2fx", r);
    std::printf("\n");
    std::snprintf(text, sizeof text, "%.2fx", ratio);
    char title[128];
    std::snprintf(title, sizeof title,
                  "write in one process to callback in another, median of %d round medians, spread %.2fx-%.2fx",
                  wakeRounds, *low, *high);
    report(title, microseconds(medianOf(medians[project])), microseconds(baseline), text, ratio, 1.5);
    const int total = wakeRounds * wakesPerRound;
    const double p99Project = percentile99(all[project]);
    const double p99Bare = percentile99(all[bare]);
    std::snprintf(text, sizeof text, "%.2fx", p99Project / std::max(p99Bare, 0.001));
    report("write in one process to callback in another, p99 of " + std::to_string(total), microseconds(p99Project),
           microseconds(p99Bare), text, 0, 0);
    std::snprintf(text, sizeof text, "%.2fx", medianOf(medians[observer]) / std::max(baseline, 0.001));
    report("the same to the observer thread's call, before the counts are read, median",
           microseconds(medianOf(medians[observer])), microseconds(baseline), text, 0, 0);
    ::sched_setaffinity(0, sizeof allowed, &allowed);
    if (const auto samples = samplesDirectory()) {
        std::ofstream out(*samples / "observation_latency.csv");
        out << "side,microseconds\n";
        for (const auto side : {project, bare}) {
            for (const double value : all[side])
                out << (side == project ? "project" : "baseline") << ',' << value << '\n';
        }
    }
}

void measureIdle()
{
    const char* configured = std::getenv("FEXO_BENCH_IDLE_SECONDS");
    const int seconds = configured != nullptr ? std::atoi(configured) : 10;
    std::atomic<int> calls{0};
    FeXOService service;
    auto observation = service.observeNotifications([&](NotificationCounts) { ++calls; });
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // the thread reaches its wait
    const auto before = otherThreadsSwitches();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const auto switches = otherThreadsSwitches() - before;
    report("idle observer over " + std::to_string(seconds) + " s: callbacks, thread wake-ups",
           std::to_string(calls.load()) + ", " + std::to_string(switches), "-", "-",
           static_cast<double>(calls.load() + switches), 0.5);
}

// `manualTime`: the function times each iteration itself.
template <class F>
void add(const std::string& name, F function, std::size_t count, std::int64_t iterations = 0, bool manualTime = false)
{
    auto* benchmark = benchmark::RegisterBenchmark(
        name.c_str(), [function, count](benchmark::State& state) { function(state, count); });
    benchmark->Unit(benchmark::kMicrosecond);
    if (manualTime)
        benchmark->UseManualTime();
    else
        benchmark->UseRealTime();
    if (iterations > 0) benchmark->Iterations(iterations);
}

} // namespace
} // namespace fexo::bench

int main(int argc, char** argv)
{
    using namespace fexo::bench;
    TemporaryDirectory resources;
    installConfiguration(resources.path(), resources.path() / "groups", "http://127.0.0.1:9");
    // The processes are forked before any thread of this one starts.
    measureWakes(resources.path());
    measureIdle();

    constexpr std::size_t n = 100000;
    add("page/project/100000", projectPage, n);
    add("page/baseline/100000", barePage, n);
    add("page/fetchAll-and-sort/100000", fetchAllAndSort, n, 3);
    add("unreadCount/project/100000", projectUnread, n);
    add("unreadCount/baseline/100000", bareUnread, n);
    // At the size of the observation figure's store.
    add(
        "counts/after-another-commit/64",
        [](benchmark::State& state, std::size_t count) { countsRead(state, count, true); }, 64, 0, true);
    add(
        "counts/unchanged/64", [](benchmark::State& state, std::size_t count) { countsRead(state, count, false); }, 64,
        0, true);
    const std::vector<Figure> figures = {
        {"first page of 50 at 100k records", "page/project/100000", "page/baseline/100000", "", 1.5},
        {"unreadCount at 100k records", "unreadCount/project/100000", "unreadCount/baseline/100000", "", 1.5},
        {"page of 50 at 100k vs fetchAllNotifications and a sort", "page/project/100000",
         "page/fetchAll-and-sort/100000", "", 0, true},
        {"counts at 64 records, read after another connection's commit vs with nothing changed",
         "counts/after-another-commit/64", "counts/unchanged/64", "", 0},
    };
    return runAndReport(argc, argv, figures);
}
