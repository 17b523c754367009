#pragma once

#include <FeXOPlatform/URLSession.hpp>
#include <FeXOPlatform/URLSessionDataTask.hpp>

#include <atomic>
#include <memory>

namespace fexo {

// Internal. What every copy of a task handle shares until the task is resumed.
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

} // namespace fexo
