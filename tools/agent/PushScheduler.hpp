#pragma once

#include <agent/ExtensionRunner.hpp>
#include <agent/QueueDatabase.hpp>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace fexo::agent {

// Runs the extension for accepted pushes: at most `workers` at once, taken in arrival order (one
// worker runs them strictly one after another). Each run is recorded in the queue as running,
// with its process group, before the extension can start.
//
// Thread rules: the members may be called from any thread. `finished` runs once per push whose
// run came to a verdict, on a worker thread (several at once with several workers), never
// inside a member call. A push whose run was abandoned gets no call: it stays running in the
// queue. Destruction abandons what runs and waits for the workers.
class PushScheduler {
public:
    using Finished = std::function<void(QueuedPush push, ExtensionRun run)>;

    PushScheduler(const ExtensionRunner& runner, QueueDatabase& queue, std::size_t workers, Finished finished);
    ~PushScheduler();
    PushScheduler(const PushScheduler&) = delete;
    PushScheduler& operator=(const PushScheduler&) = delete;

    // Takes an accepted push to run after those already waiting.
    void add(QueuedPush push);
    // Pushes waiting for a worker.
    std::size_t waiting() const;
    // Pushes taken by a worker whose `finished` has not returned yet.
    std::size_t running() const;
    // No push starts any more; those waiting stay accepted in the queue.
    void stopTaking();
    // Kills the running extensions (after stopTaking()).
    void abandon();

private:
    void work();

    const ExtensionRunner& runner_;
    QueueDatabase& queue_;
    const Finished finished_;
    mutable std::mutex mutex_;
    std::condition_variable available_;
    std::deque<QueuedPush> waiting_;
    std::size_t running_ = 0;
    bool stopping_ = false;
    int abandon_ = -1; // eventfd, readable once abandon() was called
    std::vector<std::thread> workers_;
};

} // namespace fexo::agent
