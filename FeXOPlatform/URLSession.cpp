#include <FeXOPlatform/URLSession.hpp>
#include <FeXOPlatform/URLSessionDataTaskState.hpp>
#include <FeXOPlatform/URLSessionEngine.hpp>

#include <utility>

namespace fexo {

namespace {
URLSession* sharedSession = nullptr;
} // namespace

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

bool URLSession::setSharedConfiguration(URLSessionConfiguration configuration)
{
    return shared().engine_->reconfigure(std::move(configuration));
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
    return URLSessionDataTask(
        std::make_shared<URLSessionDataTask::State>(std::move(request), std::move(completion), engine_));
}

bool URLSession::waitUntilIdle(std::chrono::milliseconds limit)
{
    return engine_->waitUntilIdle(limit);
}

bool URLSession::isCurrentThread() const
{
    return engine_->isCurrentThread();
}

std::uint64_t URLSession::connectionsOpened() const
{
    return engine_->connectionsOpened();
}

} // namespace fexo
