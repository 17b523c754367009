#pragma once

#include <agent/ExtensionRunner.hpp>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace fexo::agent {

// One accepted push.
struct PushJob {
    std::string requestId;
    std::string userInfoJSON;
    DeliveredContent original; // what is shown when the extension delivers nothing
    std::chrono::steady_clock::time_point accepted;
};

// The pushes accepted and not yet finished: at most `workers` extension processes run at once,
// and at most `capacity` pushes wait for a worker.
// Thread rules: submit() may be called from any thread. `finished` runs once per accepted push,
// on a worker thread (several at once), never inside submit(). Destruction waits for running
// extensions to end and drops the pushes still waiting.
class PushQueue {
public:
    using Finished = std::function<void(PushJob, ExtensionRun)>;

    PushQueue(const ExtensionRunner& runner, std::size_t workers, std::size_t capacity, Finished finished);
    ~PushQueue();
    PushQueue(const PushQueue&) = delete;
    PushQueue& operator=(const PushQueue&) = delete;

    // False, and the push is not taken, when `capacity` pushes already wait.
    bool submit(PushJob job);

private:
    void work();

    const ExtensionRunner& runner_;
    const std::size_t capacity_;
    const Finished finished_;
    std::mutex mutex_;
    std::condition_variable available_;
    std::deque<PushJob> waiting_;
    bool stopping_ = false;
    std::vector<std::thread> workers_;
};

} // namespace fexo::agent
