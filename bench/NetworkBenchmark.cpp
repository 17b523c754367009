// The two server roads against bare libcurl on the same loopback server: one push from
// handleNotification to the content handler (baseline: a keep-alive easy handle POSTing the
// same body, plus one SQLite write of the record), and 1,000 registrations started at once
// from one thread (baseline: a bare multi loop sending the same 1,000 POSTs).

#include "BenchSupport.hpp"

#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>
#include <FeXOPlatform/URLSession.hpp>
#include <FeXOPlatform/URLSessionConfiguration.hpp>
#include <FeXOPlatform/UUID.hpp>

#include <curl/curl.h>
#include <sqlite3.h>

#include <condition_variable>
#include <future>
#include <iostream>
#include <stdexcept>

namespace fexo::bench {
namespace {

constexpr int pushes = 2000;
constexpr int registrations = 1000;

LoopbackServer* server = nullptr;
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

void projectPush(benchmark::State& state)
{
    static const FeXONotificationExtensionHandler handler;
    static const UNNotificationRequest request = pushRequest();
    for (auto _ : state) {
        if (!pushOnce(handler, request)) state.SkipWithError("content handler not called");
    }
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

void barePush(benchmark::State& state)
{
    static BarePush bare;
    for (auto _ : state) {
        if (!bare.once()) state.SkipWithError("bare push failed");
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
    LoopbackServer loopback;
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

    using Function = void (*)(benchmark::State&);
    for (auto [name, function] : {std::pair<const char*, Function>{"push/project", projectPush},
                                  std::pair<const char*, Function>{"push/baseline", barePush}}) {
        benchmark::RegisterBenchmark(name, function)
            ->Unit(benchmark::kMicrosecond)
            ->UseRealTime()
            ->Iterations(1)
            ->Repetitions(pushes)
            ->ReportAggregatesOnly(true)
            ->ComputeStatistics("p99", percentile99);
    }
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
                                        {"push road, median of 2,000", "push/project", "push/baseline", "median", 1.3},
                                        {"push road, p99 of 2,000", "push/project", "push/baseline", "p99", 0},
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
