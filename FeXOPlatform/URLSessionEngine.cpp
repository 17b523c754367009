#include <FeXOPlatform/URLOrigin.hpp>
#include <FeXOPlatform/URLSessionEngine.hpp>

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <utility>
#include <vector>

namespace fexo {

namespace {

constexpr int maximumRedirects = 16;

void initializeCurlOnce()
{
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    (void)result; // a failure shows up as easy handles that cannot be made
}

} // namespace

URLSession::Engine::Engine(URLSessionConfiguration configuration, bool isShared)
    : configuration_(std::move(configuration)), isShared_(isShared)
{
    initializeCurlOnce();
    multi_ = curl_multi_init();
}

URLSession::Engine::~Engine()
{
    // Only reached for sessions of their own, after stop() has joined the thread.
    if (multi_) curl_multi_cleanup(multi_);
}

bool URLSession::Engine::reconfigure(URLSessionConfiguration configuration)
{
    std::lock_guard lock(mutex_);
    if (threadStarted_ || stopping_) return false;
    configuration_ = std::move(configuration);
    return true;
}

void URLSession::Engine::enqueue(std::unique_ptr<URLSessionTransfer> transfer)
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

bool URLSession::Engine::waitUntilIdle(std::chrono::milliseconds limit)
{
    std::unique_lock lock(mutex_);
    if (std::this_thread::get_id() == threadId_) return inFlight_ == 0;
    return idle_.wait_for(lock, limit, [&] { return inFlight_ == 0; });
}

bool URLSession::Engine::isCurrentThread() const
{
    std::lock_guard lock(mutex_);
    return threadStarted_ && std::this_thread::get_id() == threadId_;
}

void URLSession::Engine::stop(bool cancel, std::chrono::milliseconds limit)
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

// Called with mutex_ held: from here on the configuration is fixed.
void URLSession::Engine::startThread()
{
    const long perHost = std::max(1L, configuration_.maximumConnectionsPerHost);
    admission_.setSlotsPerOrigin(static_cast<std::size_t>(perHost));
    if (multi_) {
        curl_multi_setopt(multi_, CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
        curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, perHost);
        // Left alone, curl sizes its cache of idle connections by the transfers in hand, so as
        // a burst drains it closes connections it is about to need again. A fixed size keeps
        // every connection of a few hosts between bursts.
        curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, 4 * perHost);
    }
    if (isShared_) {
        // Registered after curl (and with it the TLS library) was initialised, so it runs
        // before the TLS library's own exit handler frees what the thread may be using.
        std::atexit(&Engine::stopSharedAtExit);
    }
    // The thread takes no signals: SIGPIPE from a peer that closed the socket stays pending
    // there instead of ending the process, and the host's handlers run on its own threads.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    threadId_ = thread_.get_id();
    threadStarted_ = true;
}

void URLSession::Engine::run()
{
    for (;;) {
        std::deque<std::unique_ptr<URLSessionTransfer>> arrived;
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
            URLSessionTransfer* transfer = nullptr;
            curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
            finish(transfer, message->data.result);
        }
        expireTransfers();
        if (multi_) curl_multi_poll(multi_, nullptr, 0, pollTimeout(), nullptr);
    }
}

void URLSession::Engine::begin(std::unique_ptr<URLSessionTransfer> owned)
{
    URLSessionTransfer* transfer = owned.get();
    try {
        active_.emplace(transfer, std::move(owned));
    } catch (...) {
        // Memory ran out before the session took the transfer: it still completes, once.
        if (owned) {
            active_.erase(transfer);
            invoke(owned->completion, TransferOutcome::failure(URLError::unknown, std::nullopt));
            owned.reset();
            taskDone();
        }
        return;
    }
    try {
        const auto refused = multi_ ? transfer->configure(configuration_) : URLError::unknown;
        if (refused) {
            fail(transfer, *refused);
            return;
        }
        transfer->origin = originKey(transfer->request.url().absoluteString());
    } catch (...) {
        fail(transfer, URLError::unknown);
        return;
    }
    transfer->touch(); // the idle clock runs from here, also while the transfer waits for a slot
    if (admission_.enter(transfer)) admit(transfer);
}

// The admission key of a URL. A session mostly sends to one URL again and again, so the last
// answer is kept rather than the URL parsed anew for each transfer. Session thread only.
const std::string& URLSession::Engine::originKey(const std::string& url)
{
    if (!lastOriginURL_ || *lastOriginURL_ != url) {
        const auto origin = URLOrigin::of(url);
        lastOriginKey_ = origin ? origin->key() : url;
        lastOriginURL_ = url;
    }
    return lastOriginKey_;
}

// Hands the transfer to curl in a slot of its origin that it already holds.
void URLSession::Engine::admit(URLSessionTransfer* transfer)
{
    if (curl_multi_add_handle(multi_, transfer->easy) != CURLM_OK) {
        transfer->admitted = true; // holds the slot until withdraw() passes it on
        fail(transfer, URLError::unknown);
        return;
    }
    transfer->admitted = true;
}

// Takes a transfer out of curl or out of its queue; a freed slot goes to the next in line.
void URLSession::Engine::withdraw(URLSessionTransfer* transfer)
{
    if (!transfer->admitted) {
        admission_.withdraw(transfer);
        return;
    }
    curl_multi_remove_handle(multi_, transfer->easy);
    transfer->admitted = false;
    if (stoppingThread_) return;
    if (URLSessionTransfer* next = admission_.release(transfer)) admit(next);
}

void URLSession::Engine::finish(URLSessionTransfer* transfer, CURLcode result)
{
    countConnections(transfer->easy);
    try {
        if (result == CURLE_OK) {
            const char* effective = nullptr;
            curl_easy_getinfo(transfer->easy, CURLINFO_EFFECTIVE_URL, &effective);
            if (auto target = transfer->sameOriginRedirect(effective ? effective : "")) {
                if (transfer->redirectsFollowed == maximumRedirects) {
                    fail(transfer, URLError::httpTooManyRedirects);
                    return;
                }
                long status = 0;
                curl_easy_getinfo(transfer->easy, CURLINFO_RESPONSE_CODE, &status);
                // Same origin, so the transfer keeps its slot.
                curl_multi_remove_handle(multi_, transfer->easy);
                if (!transfer->followRedirect(*target, status) ||
                    curl_multi_add_handle(multi_, transfer->easy) != CURLM_OK) {
                    transfer->admitted = false;
                    if (URLSessionTransfer* next = admission_.release(transfer)) admit(next);
                    fail(transfer, URLError::unknown);
                }
                return;
            }
        }
        TransferOutcome outcome = TransferOutcome::of(*transfer, result);
        withdraw(transfer);
        complete(transfer, std::move(outcome));
    } catch (...) {
        fail(transfer, URLError::unknown);
    }
}

void URLSession::Engine::expireTransfers()
{
    const auto now = URLSessionTransfer::Clock::now();
    std::vector<URLSessionTransfer*> expired;
    for (const auto& [raw, transfer] : active_)
        if (transfer->easy && now >= transfer->deadline()) expired.push_back(raw);
    for (URLSessionTransfer* transfer : expired) {
        countConnections(transfer->easy);
        fail(transfer, URLError::timedOut);
    }
}

int URLSession::Engine::pollTimeout() const
{
    if (active_.empty()) return INT_MAX; // woken by curl_multi_wakeup when work arrives
    auto nearest = URLSessionTransfer::Clock::time_point::max();
    for (const auto& [raw, transfer] : active_) nearest = std::min(nearest, transfer->deadline());
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(nearest - URLSessionTransfer::Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(wait, 0, INT_MAX));
}

void URLSession::Engine::countConnections(CURL* easy)
{
    long opened = 0;
    if (easy && curl_easy_getinfo(easy, CURLINFO_NUM_CONNECTS, &opened) == CURLE_OK && opened > 0)
        connections_ += static_cast<std::uint64_t>(opened);
}

// Withdraws the transfer and completes it with the error; the body it held is freed first,
// so that memory that ran out has a chance to be there for the error.
void URLSession::Engine::fail(URLSessionTransfer* transfer, URLError::Code code)
{
    if (transfer->easy && multi_) withdraw(transfer);
    std::string().swap(transfer->data);
    std::optional<std::string> failingURL;
    try {
        failingURL = transfer->request.url().absoluteString();
    } catch (...) {
    }
    complete(transfer, TransferOutcome::failure(code, std::move(failingURL)));
}

// Runs the completion (never under the lock), then frees the transfer and counts it done.
void URLSession::Engine::complete(URLSessionTransfer* transfer, TransferOutcome outcome)
{
    auto node = active_.extract(transfer);
    std::unique_ptr<URLSessionTransfer> owned = std::move(node.mapped());
    invoke(owned->completion, std::move(outcome));
    owned.reset();
    taskDone();
}

// A completion that throws ends the process: there is no caller to hand the exception to.
void URLSession::Engine::invoke(const CompletionHandler& completion, TransferOutcome outcome) noexcept
{
    if (completion) completion(std::move(outcome.data), std::move(outcome.response), std::move(outcome.error));
}

void URLSession::Engine::taskDone()
{
    std::lock_guard lock(mutex_);
    --inFlight_;
    if (inFlight_ == 0) idle_.notify_all();
}

void URLSession::Engine::shutDown()
{
    stoppingThread_ = true; // withdrawn transfers free no slot for the waiting: all are ending
    std::vector<URLSessionTransfer*> left;
    for (const auto& [raw, transfer] : active_) left.push_back(raw);
    for (URLSessionTransfer* transfer : left) {
        if (transfer->easy && multi_) withdraw(transfer);
        if (cancelOnStop_) {
            complete(transfer, TransferOutcome::failure(URLError::cancelled, transfer->request.url().absoluteString()));
        } else {
            active_.erase(transfer);
        }
    }
    admission_.clearQueues();
    std::lock_guard lock(mutex_);
    threadExited_ = true;
    exited_.notify_all();
}

} // namespace fexo
