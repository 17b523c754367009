#include <FeXOPlatform/URLError.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <curl/curl.h>

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <climits>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>

namespace fexo {

using Clock = std::chrono::steady_clock;

struct URLSessionDataTask::State {
    State(URLRequest request, URLSession::CompletionHandler completion, std::weak_ptr<URLSession::Engine> engine)
        : request(std::move(request)), completion(std::move(completion)), engine(std::move(engine))
    {
    }

    URLRequest request;
    URLSession::CompletionHandler completion;
    std::weak_ptr<URLSession::Engine> engine;
    std::atomic<bool> resumed{false};
};

namespace {

constexpr long maximumRedirects = 16;

void initializeCurlOnce()
{
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    (void)result; // a failure shows up as easy handles that cannot be made
}

struct SlistDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

// One transfer in the hands of the session thread. Only that thread touches it after the
// hand-over; curl's callbacks run there too, inside curl_multi_perform.
struct Transfer {
    Transfer(URLRequest request, URLSession::CompletionHandler completion)
        : request(std::move(request)), completion(std::move(completion))
    {
    }
    ~Transfer()
    {
        if (easy) curl_easy_cleanup(easy);
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    void touch() { lastActivity = Clock::now(); }
    Clock::time_point deadline() const { return lastActivity + idleLimit; }

    URLRequest request;
    URLSession::CompletionHandler completion;
    CURL* easy = nullptr;
    std::string origin;    // scheme://authority of the request: the per-host limit's key
    bool admitted = false; // in the multi handle; otherwise waiting for a slot of its origin
    std::unique_ptr<curl_slist, SlistDeleter> headers;
    std::string body; // outlives the transfer: curl does not copy CURLOPT_POSTFIELDS
    std::string data;
    HTTPHeaderFields responseHeaders;
    bool callbackFailed = false;
    curl_off_t lastDown = 0;
    curl_off_t lastUp = 0;
    Clock::time_point lastActivity = Clock::now();
    Clock::duration idleLimit{};
    char errorBuffer[CURL_ERROR_SIZE] = {};
};

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' || text.back() == '\n'))
        text.remove_suffix(1);
    return text;
}

size_t onBody(char* buffer, size_t size, size_t count, void* user) noexcept
{
    auto* transfer = static_cast<Transfer*>(user);
    const size_t length = size * count;
    try {
        transfer->data.append(buffer, length);
    } catch (...) {
        transfer->callbackFailed = true;
        return 0; // curl ends the transfer with a write error
    }
    transfer->touch();
    return length;
}

size_t onHeader(char* buffer, size_t size, size_t count, void* user) noexcept
{
    auto* transfer = static_cast<Transfer*>(user);
    const size_t length = size * count;
    transfer->touch();
    try {
        std::string_view line(buffer, length);
        if (line.starts_with("HTTP/")) {
            // A new answer begins (interim 1xx or a redirect's next hop): only the last one counts.
            transfer->responseHeaders.clear();
        } else if (auto colon = line.find(':'); colon != std::string_view::npos && colon > 0) {
            transfer->responseHeaders.emplace_back(std::string(trimmed(line.substr(0, colon))),
                                                   std::string(trimmed(line.substr(colon + 1))));
        }
    } catch (...) {
        transfer->callbackFailed = true;
        return 0;
    }
    return length;
}

int onProgress(void* user, curl_off_t, curl_off_t downloaded, curl_off_t, curl_off_t uploaded) noexcept
{
    auto* transfer = static_cast<Transfer*>(user);
    if (downloaded != transfer->lastDown || uploaded != transfer->lastUp) {
        transfer->lastDown = downloaded;
        transfer->lastUp = uploaded;
        transfer->touch();
    }
    return 0;
}

bool headerIsSendable(const std::string& name, const std::string& value)
{
    auto bad = [](char c) { return c == '\r' || c == '\n' || c == '\0'; };
    return !name.empty() && name.find(':') == std::string::npos && std::none_of(name.begin(), name.end(), bad) &&
           std::none_of(value.begin(), value.end(), bad);
}

} // namespace

class URLSession::Engine {
public:
    Engine(URLSessionConfiguration configuration, bool isShared)
        : configuration_(std::move(configuration)), isShared_(isShared)
    {
        initializeCurlOnce();
        multi_ = curl_multi_init();
        if (multi_) {
            curl_multi_setopt(multi_, CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
            // The per-host limit is kept here too, by admitting at most that many transfers of one
            // origin at a time (see admit()): curl's own queue of transfers waiting for a
            // connection could leave one waiting after the last connection came free.
            curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, configuration_.maximumConnectionsPerHost);
            // Left alone, curl sizes its cache of idle connections by the transfers in hand, so as
            // a burst drains it closes connections it is about to need again (and a transfer
            // queued for a connection could wait for one that was closed instead of returned).
            // A fixed size keeps every connection of a few hosts between bursts.
            curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, static_cast<long>(4 * configuration_.maximumConnectionsPerHost));
        }
    }

    ~Engine()
    {
        // Only reached for sessions of their own, after stop() has joined the thread.
        if (multi_) curl_multi_cleanup(multi_);
    }

    void enqueue(std::unique_ptr<Transfer> transfer)
    {
        {
            std::lock_guard lock(mutex_);
            if (stopping_) return;
            incoming_.push_back(std::move(transfer));
            ++inFlight_;
            if (!threadStarted_) startThread();
        }
        if (multi_) curl_multi_wakeup(multi_);
    }

    bool waitUntilIdle(std::chrono::milliseconds limit)
    {
        std::unique_lock lock(mutex_);
        if (std::this_thread::get_id() == threadId_) return inFlight_ == 0;
        return idle_.wait_for(lock, limit, [&] { return inFlight_ == 0; });
    }

    std::uint64_t connectionsOpened() const { return connections_.load(); }

    // Ends the thread. With `cancel`, every task still in flight completes with URLError
    // cancelled first; without it they are dropped. Waits at most `limit` for the thread.
    void stop(bool cancel, std::chrono::milliseconds limit)
    {
        std::unique_lock lock(mutex_);
        if (stopping_) return;
        stopping_ = true;
        cancelOnStop_ = cancel;
        if (!threadStarted_) return;
        lock.unlock();
        if (multi_) curl_multi_wakeup(multi_);
        if (std::this_thread::get_id() == threadId_) {
            thread_.detach();
            return;
        }
        lock.lock();
        const bool exited = exited_.wait_for(lock, limit, [&] { return threadExited_; });
        lock.unlock();
        if (exited)
            thread_.join();
        else
            thread_.detach(); // a completion that never returns; the process is leaving anyway
    }

    static void stopSharedAtExit();

private:
    void startThread()
    {
        if (isShared_) {
            // Registered after curl (and with it the TLS library) was initialised, so it runs
            // before the TLS library's own exit handler frees what the thread may be using.
            std::atexit(&Engine::stopSharedAtExit);
        }
        // The thread takes no signals: SIGPIPE from a peer that closed the socket stays
        // pending there instead of ending the process, and the host's handlers run on its
        // own threads.
        sigset_t all;
        sigset_t previous;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &previous);
        thread_ = std::thread([this] { run(); });
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        threadId_ = thread_.get_id();
        threadStarted_ = true;
    }

    void run()
    {
        for (;;) {
            std::deque<std::unique_ptr<Transfer>> arrived;
            bool stopping = false;
            {
                std::lock_guard lock(mutex_);
                arrived.swap(incoming_);
                stopping = stopping_;
            }
            if (stopping) {
                for (auto& transfer : arrived) active_.emplace(transfer.get(), std::move(transfer));
                shutDown();
                return;
            }
            for (auto& transfer : arrived) begin(std::move(transfer));

            int running = 0;
            if (multi_) curl_multi_perform(multi_, &running);
            int queued = 0;
            while (CURLMsg* message = multi_ ? curl_multi_info_read(multi_, &queued) : nullptr) {
                if (message->msg != CURLMSG_DONE) continue;
                Transfer* transfer = nullptr;
                curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
                finish(transfer, message->data.result);
            }
            expireIdleTransfers();
            if (multi_) curl_multi_poll(multi_, nullptr, 0, pollTimeout(), nullptr);
        }
    }

    void begin(std::unique_ptr<Transfer> transfer)
    {
        Transfer* raw = transfer.get();
        active_.emplace(raw, std::move(transfer));
        raw->easy = curl_easy_init();
        if (!multi_ || !raw->easy || !configure(*raw)) {
            complete(raw, std::nullopt, std::nullopt, URLError(URLError::unknown, raw->request.url().absoluteString()));
            return;
        }
        raw->touch(); // the idle clock runs from here, also while the transfer waits for a slot
        raw->origin = originOf(raw->request.url().absoluteString());
        if (admitted_[raw->origin] < slotsPerOrigin_) {
            admit(raw);
        } else {
            waiting_[raw->origin].push_back(raw);
        }
    }

    // Hands the transfer to curl, taking one of its origin's slots.
    void admit(Transfer* transfer)
    {
        if (curl_multi_add_handle(multi_, transfer->easy) != CURLM_OK) {
            complete(transfer, std::nullopt, std::nullopt,
                     URLError(URLError::unknown, transfer->request.url().absoluteString()));
            return;
        }
        transfer->admitted = true;
        ++admitted_[transfer->origin];
    }

    // Takes a transfer out of curl or out of its queue; a freed slot goes to the next in line.
    void withdraw(Transfer* transfer)
    {
        if (!transfer->admitted) {
            auto queue = waiting_.find(transfer->origin);
            if (queue == waiting_.end()) return;
            std::erase(queue->second, transfer);
            if (queue->second.empty()) waiting_.erase(queue);
            return;
        }
        curl_multi_remove_handle(multi_, transfer->easy);
        transfer->admitted = false;
        auto slots = admitted_.find(transfer->origin);
        if (--slots->second == 0) admitted_.erase(slots);
        auto queue = waiting_.find(transfer->origin);
        if (queue == waiting_.end() || stoppingThread_) return;
        Transfer* next = queue->second.front();
        queue->second.pop_front();
        if (queue->second.empty()) waiting_.erase(queue);
        admit(next);
    }

    static std::string originOf(const std::string& url)
    {
        const auto schemeEnd = url.find("://");
        if (schemeEnd == std::string::npos) return url;
        const auto authorityEnd = url.find_first_of("/?#", schemeEnd + 3);
        std::string origin = url.substr(0, authorityEnd);
        std::transform(origin.begin(), origin.end(), origin.begin(), [](unsigned char c) { return std::tolower(c); });
        return origin;
    }

    bool configure(Transfer& t)
    {
        CURL* e = t.easy;
        const URLRequest& request = t.request;
        const double seconds = request.timeoutInterval() > 0 && request.timeoutInterval() < 1e9
                                   ? request.timeoutInterval()
                                   : URLRequest::defaultTimeoutInterval;
        t.idleLimit = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));

        bool ok = curl_easy_setopt(e, CURLOPT_URL, request.url().absoluteString().c_str()) == CURLE_OK;
        curl_easy_setopt(e, CURLOPT_PRIVATE, &t);
        curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(e, CURLOPT_ERRORBUFFER, t.errorBuffer);
        curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, request.url().scheme() == "https" ? "https" : "http,https");
        curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(e, CURLOPT_MAXREDIRS, maximumRedirects);
        // Without CURL_REDIR_POST_* flags curl turns a POST into a GET on 301, 302 and 303
        // and repeats it, body included, on 307 and 308.
        curl_easy_setopt(e, CURLOPT_POSTREDIR, 0L);
        curl_easy_setopt(e, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(e, CURLOPT_SSL_VERIFYHOST, 2L);
        if (configuration_.certificateAuthorityFile)
            ok = ok && curl_easy_setopt(e, CURLOPT_CAINFO, configuration_.certificateAuthorityFile->c_str()) == CURLE_OK;
        curl_easy_setopt(e, CURLOPT_ACCEPT_ENCODING, "");
        curl_easy_setopt(e, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
        curl_easy_setopt(e, CURLOPT_PIPEWAIT, 1L);
        curl_easy_setopt(e, CURLOPT_TCP_KEEPALIVE, 1L);
        curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &onBody);
        curl_easy_setopt(e, CURLOPT_WRITEDATA, &t);
        curl_easy_setopt(e, CURLOPT_HEADERFUNCTION, &onHeader);
        curl_easy_setopt(e, CURLOPT_HEADERDATA, &t);
        curl_easy_setopt(e, CURLOPT_XFERINFOFUNCTION, &onProgress);
        curl_easy_setopt(e, CURLOPT_XFERINFODATA, &t);
        curl_easy_setopt(e, CURLOPT_NOPROGRESS, 0L);

        curl_slist* list = nullptr;
        auto append = [&](const std::string& line) {
            curl_slist* grown = curl_slist_append(list, line.c_str());
            if (!grown) return false;
            list = grown;
            return true;
        };
        for (const auto& [name, value] : request.allHTTPHeaderFields()) {
            if (!headerIsSendable(name, value)) continue; // would split into further headers
            ok = ok && append(value.empty() ? name + ";" : name + ": " + value); // "Name;" sends it empty
        }
        ok = ok && append("Expect:"); // no 100-continue round trip before a body
        t.headers.reset(list);
        curl_easy_setopt(e, CURLOPT_HTTPHEADER, list);

        const std::string& method = request.httpMethod();
        if (method == "GET") {
            curl_easy_setopt(e, CURLOPT_HTTPGET, 1L);
        } else if (method == "HEAD") {
            curl_easy_setopt(e, CURLOPT_NOBODY, 1L);
        } else {
            if (method == "POST" || request.httpBody()) {
                t.body = request.httpBody().value_or(std::string());
                curl_easy_setopt(e, CURLOPT_POST, 1L);
                curl_easy_setopt(e, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(t.body.size()));
                curl_easy_setopt(e, CURLOPT_POSTFIELDS, t.body.data());
            }
            // POST itself must not be a custom request, or curl would keep it across a 303.
            if (method != "POST") curl_easy_setopt(e, CURLOPT_CUSTOMREQUEST, method.c_str());
        }
        return ok;
    }

    void finish(Transfer* transfer, CURLcode result)
    {
        CURL* e = transfer->easy;
        countConnections(e);
        const char* effective = nullptr;
        curl_easy_getinfo(e, CURLINFO_EFFECTIVE_URL, &effective);
        std::optional<URL> finalURL = effective ? URL::fromString(effective) : std::nullopt;
        const std::string failingURL = finalURL ? finalURL->absoluteString() : transfer->request.url().absoluteString();
        withdraw(transfer);

        if (result != CURLE_OK) {
            long osErrno = 0;
            long verifyResult = 0;
            curl_easy_getinfo(e, CURLINFO_OS_ERRNO, &osErrno);
            curl_easy_getinfo(e, CURLINFO_SSL_VERIFYRESULT, &verifyResult);
            int code = transfer->callbackFailed ? static_cast<int>(CURLE_OUT_OF_MEMORY) : static_cast<int>(result);
            // Only http and https are allowed, so an "unsupported protocol" from a server that was
            // reached with no status line read is an answer that is not HTTP at all (curl takes it
            // for HTTP/0.9): a bad server response, not a bad URL.
            long status = 0;
            const char* peer = nullptr;
            curl_easy_getinfo(e, CURLINFO_RESPONSE_CODE, &status);
            curl_easy_getinfo(e, CURLINFO_PRIMARY_IP, &peer);
            if (result == CURLE_UNSUPPORTED_PROTOCOL && status == 0 && peer && *peer)
                code = static_cast<int>(CURLE_WEIRD_SERVER_REPLY);
            complete(transfer, std::nullopt, std::nullopt, URLError::fromCurl(code, failingURL, osErrno, verifyResult));
            return;
        }
        long status = 0;
        curl_easy_getinfo(e, CURLINFO_RESPONSE_CODE, &status);
        if (status < 100) {
            complete(transfer, std::nullopt, std::nullopt, URLError(URLError::badServerResponse, failingURL));
            return;
        }
        HTTPURLResponse response(finalURL.value_or(transfer->request.url()), static_cast<int>(status),
                                 std::move(transfer->responseHeaders));
        complete(transfer, std::move(transfer->data), std::move(response), std::nullopt);
    }

    void expireIdleTransfers()
    {
        const auto now = Clock::now();
        std::vector<Transfer*> expired;
        for (const auto& [raw, transfer] : active_)
            if (transfer->easy && now >= transfer->deadline()) expired.push_back(raw);
        for (Transfer* transfer : expired) {
            countConnections(transfer->easy);
            withdraw(transfer);
            complete(transfer, std::nullopt, std::nullopt,
                     URLError(URLError::timedOut, transfer->request.url().absoluteString()));
        }
    }

    int pollTimeout() const
    {
        if (active_.empty()) return INT_MAX; // woken by curl_multi_wakeup when work arrives
        auto nearest = Clock::time_point::max();
        for (const auto& [raw, transfer] : active_) nearest = std::min(nearest, transfer->deadline());
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(nearest - Clock::now()).count();
        return static_cast<int>(std::clamp<long long>(wait, 0, INT_MAX));
    }

    void countConnections(CURL* e)
    {
        long opened = 0;
        if (curl_easy_getinfo(e, CURLINFO_NUM_CONNECTS, &opened) == CURLE_OK && opened > 0)
            connections_ += static_cast<std::uint64_t>(opened);
    }

    // Runs the completion (never under the lock), then frees the transfer and counts it done.
    void complete(Transfer* transfer, std::optional<std::string> data, std::optional<HTTPURLResponse> response,
                  std::optional<Error> error)
    {
        auto node = active_.extract(transfer);
        std::unique_ptr<Transfer> owned = std::move(node.mapped());
        invoke(owned->completion, std::move(data), std::move(response), std::move(error));
        owned.reset();
        std::lock_guard lock(mutex_);
        --inFlight_;
        if (inFlight_ == 0) idle_.notify_all();
    }

    static void invoke(const CompletionHandler& completion, std::optional<std::string> data,
                       std::optional<HTTPURLResponse> response, std::optional<Error> error) noexcept
    {
        if (completion) completion(std::move(data), std::move(response), std::move(error));
    }

    void shutDown()
    {
        stoppingThread_ = true; // withdrawn transfers free no slot for the waiting: all are ending
        std::vector<Transfer*> left;
        for (const auto& [raw, transfer] : active_) left.push_back(raw);
        for (Transfer* transfer : left) {
            if (transfer->easy && multi_) withdraw(transfer);
            if (cancelOnStop_) {
                complete(transfer, std::nullopt, std::nullopt,
                         URLError(URLError::cancelled, transfer->request.url().absoluteString()));
            } else {
                active_.erase(transfer);
            }
        }
        std::lock_guard lock(mutex_);
        threadExited_ = true;
        exited_.notify_all();
    }

    const URLSessionConfiguration configuration_;
    const bool isShared_;
    CURLM* multi_ = nullptr;
    std::atomic<std::uint64_t> connections_{0};
    // Session thread only: transfers in curl per origin, and those waiting for a slot, in order.
    const std::size_t slotsPerOrigin_ = static_cast<std::size_t>(std::max(1L, configuration_.maximumConnectionsPerHost));
    std::unordered_map<std::string, std::size_t> admitted_;
    std::unordered_map<std::string, std::deque<Transfer*>> waiting_;
    bool stoppingThread_ = false;

    std::mutex mutex_;
    std::condition_variable idle_;
    std::condition_variable exited_;
    std::deque<std::unique_ptr<Transfer>> incoming_;
    std::size_t inFlight_ = 0;
    bool stopping_ = false;
    bool cancelOnStop_ = false;
    bool threadStarted_ = false;
    bool threadExited_ = false;
    std::thread thread_;
    std::thread::id threadId_;

    // Session thread only.
    std::unordered_map<Transfer*, std::unique_ptr<Transfer>> active_;
};

namespace {
URLSession* sharedSession = nullptr;
}

void URLSession::Engine::stopSharedAtExit()
{
    // Tasks in flight at exit are dropped: their completions could reach objects that static
    // destruction has already taken down. A completion that is running is given a moment.
    if (sharedSession) sharedSession->engine_->stop(false, std::chrono::seconds(2));
}

URLSession& URLSession::shared()
{
    // Never destroyed: the thread is stopped by the exit handler instead.
    static URLSession* session = [] {
        sharedSession = new URLSession(URLSessionConfiguration{}, SharedTag{});
        return sharedSession;
    }();
    return *session;
}

URLSession::URLSession(URLSessionConfiguration configuration)
    : engine_(std::make_shared<Engine>(std::move(configuration), false))
{
}

URLSession::URLSession(URLSessionConfiguration configuration, SharedTag)
    : engine_(std::make_shared<Engine>(std::move(configuration), true))
{
}

URLSession::~URLSession()
{
    engine_->stop(true, std::chrono::hours(24 * 365));
}

URLSessionDataTask URLSession::dataTask(URLRequest request, CompletionHandler completion)
{
    return URLSessionDataTask(std::make_shared<URLSessionDataTask::State>(std::move(request), std::move(completion), engine_));
}

bool URLSession::waitUntilIdle(std::chrono::milliseconds limit)
{
    return engine_->waitUntilIdle(limit);
}

std::uint64_t URLSession::connectionsOpened() const
{
    return engine_->connectionsOpened();
}

// The task's members live here, beside the engine that runs it.
URLSessionDataTask::URLSessionDataTask(std::shared_ptr<State> state) : state_(std::move(state)) {}

const URLRequest& URLSessionDataTask::originalRequest() const
{
    return state_->request;
}

void URLSessionDataTask::resume() const
{
    if (state_->resumed.exchange(true)) return;
    auto engine = state_->engine.lock();
    if (!engine) return;
    engine->enqueue(std::make_unique<Transfer>(state_->request, std::move(state_->completion)));
}

} // namespace fexo
