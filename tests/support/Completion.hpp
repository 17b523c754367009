#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <tuple>

namespace fexo::test {

// How long any test waits for something that happens on another thread.
inline constexpr std::chrono::seconds patience{20};

// Collects the first call of a completion and counts every call. The callback that handler()
// gives owns its state, so it stays valid when it runs after the Completion is gone.
// wait() gives the first call's arguments (one value, or a tuple for several), or fails the
// test when none came within `patience`.
template <class... Args>
class Completion {
    using Value = std::conditional_t<sizeof...(Args) == 1, std::tuple_element_t<0, std::tuple<Args..., void>>,
                                     std::tuple<Args...>>;

public:
    std::function<void(Args...)> handler()
    {
        return [state = state_](Args... args) {
            state->thread = std::this_thread::get_id();
            if (state->calls.fetch_add(1) != 0) return;
            if constexpr (sizeof...(Args) == 1) {
                state->promise.set_value(std::move(args)...);
            } else {
                state->promise.set_value(Value(std::move(args)...));
            }
        };
    }

    std::optional<Value> wait()
    {
        if (!future_.valid()) future_ = state_->promise.get_future();
        if (future_.wait_for(patience) != std::future_status::ready) {
            ADD_FAILURE() << "completion did not run";
            return std::nullopt;
        }
        return future_.get();
    }

    int calls() const { return state_->calls.load(); }
    // The thread of the last call; meaningful once wait() returned a value.
    std::thread::id thread() const { return state_->thread; }

private:
    struct State {
        std::promise<Value> promise;
        std::atomic<int> calls{0};
        std::atomic<std::thread::id> thread{};
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
    std::future<Value> future_;
};

} // namespace fexo::test
