#include <agent/PushQueue.hpp>

namespace fexo::agent {

PushQueue::PushQueue(const ExtensionRunner& runner, std::size_t workers, std::size_t capacity, Finished finished)
    : runner_(runner), capacity_(capacity), finished_(std::move(finished))
{
    for (std::size_t i = 0; i < workers; ++i) workers_.emplace_back([this] { work(); });
}

PushQueue::~PushQueue()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        waiting_.clear();
    }
    available_.notify_all();
    for (auto& worker : workers_) worker.join();
}

bool PushQueue::submit(PushJob job)
{
    {
        std::lock_guard lock(mutex_);
        if (waiting_.size() >= capacity_) return false;
        waiting_.push_back(std::move(job));
    }
    available_.notify_one();
    return true;
}

void PushQueue::work()
{
    for (;;) {
        PushJob job;
        {
            std::unique_lock lock(mutex_);
            available_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
            if (stopping_) return;
            job = std::move(waiting_.front());
            waiting_.pop_front();
        }
        ExtensionRun run = runner_.run(job.userInfoJSON, job.requestId);
        finished_(std::move(job), std::move(run));
    }
}

} // namespace fexo::agent
