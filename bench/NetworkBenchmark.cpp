// The two server roads against bare libcurl on the same loopback server: one push from
// handleNotification to the content handler (baseline: a keep-alive easy handle POSTing the
// same body, plus one SQLite write of the record), and 1,000 registrations started at once
// from one thread (baseline: a bare multi loop sending the same 1,000 POSTs).
//
// The push road is timed push by push, project and baseline alternated, in repetitions: each
// repetition gives both sides a median, and the figure is the median of those medians with the
// spread of the per-repetition ratios, so that a burst of load on the machine moves one
// repetition and not the figure.

#include "BenchSupport.hpp"

#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/NotificationInbox.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>
#include <FeXOPlatform/URLSession.hpp>
#include <FeXOPlatform/URLSessionConfiguration.hpp>
#include <FeXOPlatform/UUID.hpp>

#include <curl/curl.h>
#include <sqlite3.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <future>
#include <iostream>
#include <stdexcept>

namespace fexo::bench {
namespace {

int pushRepetitions = 10; // --push-repetitions=N (for profiling runs)
constexpr int pushesPerRepetition = 200;
constexpr int registrations = 1000;

BenchServer* server = nullptr;
std::uint64_t registrationConnections = 0; // opened by the session during the registration rounds
std::filesystem::path workDirectory;

void check(bool ok, const char* what)
{
    if (!ok) throw std::runtime_error(what);
}

UNNotificationRequest pushRequest()
{
    return UNNotificationRequest(
        "bench-push", std::make_shared<UNNotificationContent>("New message", "You have a new notification",
                                                              JSONSerialization::jsonObject(pushUserInfoJSON)));
}

// One push through the library; false when the content handler was not called in time.
bool pushOnce(const FeXONotificationExtensionHandler& handler, const UNNotificationRequest& request)
{
    auto delivered = std::make_shared<std::promise<void>>();
    auto future = delivered->get_future();
    handler.handleNotification(request,
                               [delivered](std::shared_ptr<UNMutableNotificationContent>) { delivered->set_value(); });
    return future.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
}

std::size_t appendBody(char* data, std::size_t size, std::size_t count, void* body)
{
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

// A bare POST of `body` to `url` whose answer is appended to `answer`; curl copies the URL but
// not the body, which must outlive the transfer.
void setUpPost(CURL* easy, const std::string& url, curl_slist* headers, const std::string& body, std::string& answer)
{
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
}

curl_slist* requestHeaders()
{
    curl_slist* headers = nullptr;
    headers = curl_slist_append(headers, "Content-Type: application/json");
    headers = curl_slist_append(headers, ("client_secret: " + clientSecret).c_str());
    headers = curl_slist_append(headers, ("client_id: " + clientId).c_str());
    return headers;
}

// A keep-alive easy handle and a SQLite table laid out as the store's, at the same durability.
struct BarePush {
    CURL* easy = curl_easy_init();
    curl_slist* headers = requestHeaders();
    std::string requestBody = server->lastBody(contentPath);
    std::string answer;
    sqlite3* database = nullptr;
    sqlite3_stmt* upsert = nullptr;
    std::uint64_t written = 0;

    BarePush()
    {
        check(!requestBody.empty(), "the project's request body was not seen");
        setUpPost(easy, server->baseURL() + contentPath, headers, requestBody, answer);
        const auto path = workDirectory / "bare-push.sqlite";
        check(sqlite3_open(path.c_str(), &database) == SQLITE_OK, "open");
        sqlite3_busy_timeout(database, 5000);
        check(sqlite3_exec(database,
                           "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; "
                           "CREATE TABLE IF NOT EXISTS defaults (key TEXT PRIMARY KEY NOT NULL, kind INTEGER NOT "
                           "NULL, value BLOB NOT NULL) WITHOUT ROWID",
                           nullptr, nullptr, nullptr) == SQLITE_OK,
              "configure");
        // Every index the store's table carries, in the same form, so that the baseline's upsert
        // maintains what the project's does.
        const std::string storeIndexes = fexo::NotificationInbox::recordIndex().creationStatements();
        check(sqlite3_exec(database, storeIndexes.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, "index");
        check(sqlite3_prepare_v2(database,
                                 "INSERT INTO defaults (key, kind, value) VALUES (?1, 5, ?2) ON CONFLICT (key) DO "
                                 "UPDATE SET kind = excluded.kind, value = excluded.value",
                                 -1, &upsert, nullptr) == SQLITE_OK,
              "prepare");
    }

    ~BarePush()
    {
        sqlite3_finalize(upsert);
        sqlite3_close(database);
        curl_slist_free_all(headers);
        curl_easy_cleanup(easy);
    }

    bool once()
    {
        answer.clear();
        if (curl_easy_perform(easy) != CURLE_OK) return false;
        // A new record under a fresh random identifier, as the extension stores each push: the
        // keys land all over the table, not only at its end.
        const std::string key = "response_" + UUID().uuidString();
        ++written;
        sqlite3_reset(upsert);
        sqlite3_bind_text(upsert, 1, key.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_blob(upsert, 2, answer.data(), static_cast<int>(answer.size()), SQLITE_STATIC);
        return sqlite3_step(upsert) == SQLITE_DONE;
    }
};

double elapsedMicroseconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - since).count();
}

// CPU time of the whole process (every thread: the caller, the session's, the server's), in
// microseconds. One push at a time runs, so the difference around a push is that push's CPU,
// which other work on the machine does not inflate as it does the wall time.
double processCPUMicroseconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double medianOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::string microseconds(double us)
{
    char text[32];
    std::snprintf(text, sizeof text, us >= 1000 ? "%.2f ms" : "%.1f us", us >= 1000 ? us / 1000 : us);
    return text;
}

std::string ratioText(double ratio)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2fx", ratio);
    return text;
}

// The push road, project and baseline alternated push by push (which goes first alternates by
// repetition). Prints and summarises the figures; writes every push's time when asked.
void measurePushRoad(const std::optional<std::filesystem::path>& samples)
{
    const FeXONotificationExtensionHandler handler;
    const UNNotificationRequest request = pushRequest();
    BarePush bare;
    std::vector<double> all[2];
    std::vector<double> medians[2];
    std::vector<double> ratios;
    std::vector<double> cpu[2];
    for (int repetition = 0; repetition < pushRepetitions; ++repetition) {
        std::vector<double> times[2];
        for (int i = 0; i < pushesPerRepetition; ++i) {
            for (int turn = 0; turn < 2; ++turn) {
                const int side = (turn + repetition) % 2; // 0: project, 1: baseline
                const double cpuStart = processCPUMicroseconds();
                const auto start = std::chrono::steady_clock::now();
                const bool ok = side == 0 ? pushOnce(handler, request) : bare.once();
                times[side].push_back(elapsedMicroseconds(start));
                cpu[side].push_back(processCPUMicroseconds() - cpuStart);
                check(ok, side == 0 ? "project push failed" : "baseline push failed");
            }
        }
        for (int side = 0; side < 2; ++side) {
            medians[side].push_back(medianOf(times[side]));
            all[side].insert(all[side].end(), times[side].begin(), times[side].end());
        }
        ratios.push_back(medians[0].back() / medians[1].back());
    }
    const double project = medianOf(medians[0]);
    const double baseline = medianOf(medians[1]);
    const double ratio = project / baseline;
    const auto [low, high] = std::minmax_element(ratios.begin(), ratios.end());
    const double p99Project = percentile99(all[0]);
    const double p99Baseline = percentile99(all[1]);
    const int total = pushRepetitions * pushesPerRepetition;
    std::cout << "push road, " << pushRepetitions << " repetitions of " << pushesPerRepetition
              << " pushes each side, alternated:\n  per-repetition ratios:";
    for (double r : ratios) std::cout << ' ' << ratioText(r);
    std::cout << "\n  median of medians: project " << microseconds(project) << ", baseline " << microseconds(baseline)
              << ", " << ratioText(ratio) << " (spread " << ratioText(*low) << " to " << ratioText(*high)
              << "; goal <= 1.30x: " << (ratio <= 1.3 ? "met" : "missed") << ")\n  p99 of " << total << ": project "
              << microseconds(p99Project) << ", baseline " << microseconds(p99Baseline) << ", "
              << ratioText(p99Project / p99Baseline) << "\n  CPU per push (all threads), median of " << total
              << ": project " << microseconds(medianOf(cpu[0])) << ", baseline " << microseconds(medianOf(cpu[1]))
              << ", " << ratioText(medianOf(cpu[0]) / medianOf(cpu[1])) << std::endl;
    appendSummary("push road, median of " + std::to_string(pushRepetitions) + " repetition medians (" +
                      std::to_string(total) + " pushes), spread " + ratioText(*low) + "-" + ratioText(*high),
                  microseconds(project), microseconds(baseline), ratioText(ratio), "<= 1.30x",
                  ratio <= 1.3 ? "met" : "missed");
    appendSummary("push road, p99 of " + std::to_string(total), microseconds(p99Project), microseconds(p99Baseline),
                  ratioText(p99Project / p99Baseline), "report", "-");
    if (samples) {
        std::ofstream out(*samples / "push_road.csv");
        out << "side,repetition,push,microseconds\n";
        for (int side = 0; side < 2; ++side) {
            for (std::size_t i = 0; i < all[side].size(); ++i) {
                out << (side == 0 ? "project" : "baseline") << ',' << i / pushesPerRepetition << ','
                    << i % pushesPerRepetition << ',' << all[side][i] << '\n';
            }
        }
    }
}

void projectRegistrations(benchmark::State& state)
{
    static const FeXOService service;
    const auto before = URLSession::shared().connectionsOpened();
    for (auto _ : state) {
        std::mutex mutex;
        std::condition_variable finished;
        int done = 0;
        int failed = 0;
        for (int i = 0; i < registrations; ++i) {
            service.registerDevice("token-0001", "device-0001", "", "", "", PushProvider::FCM,
                                   [&](Result<RegisterDeviceModel> result) {
                                       std::lock_guard lock(mutex);
                                       if (!result.isSuccess()) ++failed;
                                       if (++done == registrations) finished.notify_one();
                                   });
        }
        std::unique_lock lock(mutex);
        if (!finished.wait_for(lock, std::chrono::seconds(60), [&] { return done == registrations; }) || failed > 0) {
            state.SkipWithError("registrations did not all succeed");
        }
    }
    registrationConnections += URLSession::shared().connectionsOpened() - before;
}

// One multi handle for the whole run, so that its connections are reused from round to
// round as the session's are, limited per host as the session is.
void bareRegistrations(benchmark::State& state)
{
    static CURLM* multi = [] {
        CURLM* handle = curl_multi_init();
        curl_multi_setopt(handle, CURLMOPT_MAX_HOST_CONNECTIONS, URLSessionConfiguration{}.maximumConnectionsPerHost);
        return handle;
    }();
    static curl_slist* headers = requestHeaders();
    static const std::string body = server->lastBody(registrationPath);
    static const std::string url = server->baseURL() + registrationPath;
    check(!body.empty(), "the project's registration body was not seen");
    for (auto _ : state) {
        std::vector<std::string> answers(registrations);
        for (int i = 0; i < registrations; ++i) {
            CURL* easy = curl_easy_init();
            setUpPost(easy, url, headers, body, answers[static_cast<std::size_t>(i)]);
            curl_multi_add_handle(multi, easy);
        }
        int running = 1;
        int completed = 0;
        while (completed < registrations) {
            curl_multi_perform(multi, &running);
            int left = 0;
            while (CURLMsg* message = curl_multi_info_read(multi, &left)) {
                if (message->msg != CURLMSG_DONE) continue;
                if (message->data.result != CURLE_OK) state.SkipWithError("bare registration failed");
                curl_multi_remove_handle(multi, message->easy_handle);
                curl_easy_cleanup(message->easy_handle);
                ++completed;
            }
            if (completed < registrations) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
        }
    }
}

} // namespace
} // namespace fexo::bench

int main(int argc, char** argv)
{
    using namespace fexo::bench;
    curl_global_init(CURL_GLOBAL_DEFAULT);
    TemporaryDirectory directory;
    workDirectory = directory.path();
    BenchServer loopback;
    server = &loopback;
    installConfiguration(directory.path() / "resources", directory.path() / "app-groups", loopback.baseURL());

    // Warm both roads (store opened, connection up) and learn the exact bodies the project sends.
    {
        const fexo::FeXONotificationExtensionHandler handler;
        const auto request = pushRequest();
        for (int i = 0; i < 20; ++i) check(pushOnce(handler, request), "warm-up push failed");
        std::promise<void> registered;
        fexo::FeXOService().registerDevice("token-0001", "device-0001", "", "", "", fexo::PushProvider::FCM,
                                           [&](fexo::Result<fexo::RegisterDeviceModel>) { registered.set_value(); });
        registered.get_future().wait();
    }

    // Before Google Benchmark reads the arguments: the push road is measured here unless a
    // filter names only other figures.
    bool pushRoad = true;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind("--push-repetitions=", 0) == 0) {
            pushRepetitions = std::max(1, std::atoi(argument.c_str() + 19));
            continue;
        }
        if (argument.rfind("--benchmark_filter=", 0) == 0) pushRoad = argument.find("push") != std::string::npos;
        argv[kept++] = argv[i];
    }
    argc = kept;
    if (pushRoad) measurePushRoad(samplesDirectory());

    using Function = void (*)(benchmark::State&);
    for (auto [name, function] : {std::pair<const char*, Function>{"registrations/project", projectRegistrations},
                                  std::pair<const char*, Function>{"registrations/baseline", bareRegistrations}}) {
        benchmark::RegisterBenchmark(name, function)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->Iterations(1)
            ->Repetitions(7)
            ->ReportAggregatesOnly(true);
    }

    const int status = runAndReport(argc, argv,
                                    {
                                        {"1,000 registrations at once, median of 7", "registrations/project",
                                         "registrations/baseline", "median", 1.2},
                                    });

    const auto opened = registrationConnections;
    const long limit = fexo::URLSessionConfiguration{}.maximumConnectionsPerHost;
    std::cout << "registrations: connections opened by the session over all rounds " << opened << " (per-host limit "
              << limit << ")" << std::endl;
    appendSummary("registrations: connections opened", std::to_string(opened), "-", "-", "<= " + std::to_string(limit),
                  opened <= static_cast<std::uint64_t>(limit) ? "met" : "missed");
    return status;
}
