#include <agent/PushScheduler.hpp>

#include <sys/eventfd.h>
#include <unistd.h>

#include <stdexcept>

namespace fexo::agent {

PushScheduler::PushScheduler(const ExtensionRunner& runner, QueueDatabase& queue, std::size_t workers,
                             Finished finished)
    : runner_(runner), queue_(queue), finished_(std::move(finished))
{
    abandon_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (abandon_ < 0) throw std::runtime_error("cannot make an eventfd");
    // Each extension dies with the thread that started it: these threads live as long as this object.
    for (std::size_t i = 0; i < workers; ++i) workers_.emplace_back([this] { work(); });
}

PushScheduler::~PushScheduler()
{
    stopTaking();
    abandon();
    for (auto& worker : workers_) worker.join();
    ::close(abandon_);
}

void PushScheduler::add(QueuedPush push)
{
    {
        std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(push));
    }
    available_.notify_one();
}

std::size_t PushScheduler::waiting() const
{
    std::lock_guard lock(mutex_);
    return waiting_.size();
}

std::size_t PushScheduler::running() const
{
    std::lock_guard lock(mutex_);
    return running_;
}

void PushScheduler::stopTaking()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    available_.notify_all();
}

void PushScheduler::abandon()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] auto written = ::write(abandon_, &one, sizeof one);
}

void PushScheduler::work()
{
    for (;;) {
        QueuedPush push;
        {
            std::unique_lock lock(mutex_);
            available_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
            if (stopping_) return;
            push = std::move(waiting_.front());
            waiting_.pop_front();
            ++running_;
        }
        ExtensionRun run;
        std::string failure;
        // Recorded before the extension runs: a push that may have reached the server is never
        // run again, whatever stops the agent after this.
        queue_.markRunning(push.sequence);
        if (auto process = runner_.spawn(push.requestId, failure)) {
            // So that an agent started later kills what is left of the group. The extension
            // itself dies with this agent (PR_SET_PDEATHSIG) before and after this commit.
            queue_.recordProcessGroup(push.sequence, ProcessGroupRecord::of(process->processGroup()));
            run = runner_.verdict(*process, runner_.supervise(*process, push.userInfoJSON, abandon_));
        } else {
            run.ending = failure;
        }
        if (!run.stopped) finished_(std::move(push), std::move(run));
        std::lock_guard lock(mutex_);
        --running_;
    }
}

} // namespace fexo::agent
