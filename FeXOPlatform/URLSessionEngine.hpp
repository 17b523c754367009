#pragma once

#include <FeXOPlatform/PerOriginAdmission.hpp>
#include <FeXOPlatform/TransferOutcome.hpp>
#include <FeXOPlatform/URLSession.hpp>
#include <FeXOPlatform/URLSessionTransfer.hpp>

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>

namespace fexo {

// Internal. The thread of a URLSession and the curl multi handle it drives. Other threads
// only hand transfers over (enqueue) and wake it; every curl handle, every transfer after the
// hand-over and every completion belong to the session thread.
class URLSession::Engine {
public:
    Engine(URLSessionConfiguration configuration, bool isShared);
    ~Engine();

    // Replaces the configuration; false once the thread has started (the first task).
    bool reconfigure(URLSessionConfiguration configuration);
    void enqueue(std::unique_ptr<URLSessionTransfer> transfer);
    bool waitUntilIdle(std::chrono::milliseconds limit);
    bool isCurrentThread() const;
    std::uint64_t connectionsOpened() const { return connections_.load(); }

    // Ends the thread. With `cancel`, every task still in flight completes with URLError
    // cancelled first; without it they are dropped. Waits at most `limit` for the thread.
    void stop(bool cancel, std::chrono::milliseconds limit);

    static void stopSharedAtExit();

private:
    void startThread();
    void run();
    void begin(std::unique_ptr<URLSessionTransfer> transfer);
    void admit(URLSessionTransfer* transfer);
    const std::string& originKey(const std::string& url);
    void withdraw(URLSessionTransfer* transfer);
    void finish(URLSessionTransfer* transfer, CURLcode result);
    void expireTransfers();
    int pollTimeout() const;
    void countConnections(CURL* easy);
    void complete(URLSessionTransfer* transfer, TransferOutcome outcome);
    void fail(URLSessionTransfer* transfer, URLError::Code code);
    static void invoke(const CompletionHandler& completion, TransferOutcome outcome) noexcept;
    void taskDone();
    void shutDown();

    // Fixed once the thread has started.
    URLSessionConfiguration configuration_;
    const bool isShared_;
    CURLM* multi_ = nullptr;
    std::atomic<std::uint64_t> connections_{0};

    mutable std::mutex mutex_;
    std::condition_variable idle_;
    std::condition_variable exited_;
    std::deque<std::unique_ptr<URLSessionTransfer>> incoming_;
    std::size_t inFlight_ = 0;
    bool stopping_ = false;
    bool cancelOnStop_ = false;
    bool threadStarted_ = false;
    bool threadExited_ = false;
    std::thread thread_;
    std::thread::id threadId_;

    // Session thread only.
    PerOriginAdmission admission_;
    std::optional<std::string> lastOriginURL_; // originKey()'s memory, session thread only
    std::string lastOriginKey_;
    bool stoppingThread_ = false;
    std::unordered_map<URLSessionTransfer*, std::unique_ptr<URLSessionTransfer>> active_;
};

} // namespace fexo
