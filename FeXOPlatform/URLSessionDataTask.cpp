#include <FeXOPlatform/URLSessionDataTask.hpp>
#include <FeXOPlatform/URLSessionDataTaskState.hpp>
#include <FeXOPlatform/URLSessionEngine.hpp>

#include <utility>

namespace fexo {

URLSessionDataTask::URLSessionDataTask(std::shared_ptr<State> state) : state_(std::move(state))
{
}

const URLRequest& URLSessionDataTask::originalRequest() const
{
    return state_->request;
}

void URLSessionDataTask::resume() const
{
    if (state_->resumed.exchange(true)) return;
    auto engine = state_->engine.lock();
    if (!engine) return;
    engine->enqueue(std::make_unique<URLSessionTransfer>(state_->request, std::move(state_->completion)));
}

} // namespace fexo
