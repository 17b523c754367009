// observeNotifications() across processes: no commit missed, counts of real moments, the
// observer's own thread, and cancelling while callbacks and writes run (also under TSan).
#include <support/ForkedProcess.hpp>
#include <support/ToolSandbox.hpp>

#include <FeXONotificationService/FeXOService.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

using fexo::FeXOService;
using fexo::NotificationCounts;
using fexo::Response;
using namespace std::chrono_literals;

Response record(int i)
{
    return Response(fexo::Date(i), fexo::NotificationData("text", "sender"), {}, {}, "r" + std::to_string(i));
}

// What the callbacks saw, for a test thread to wait on.
struct Seen {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<NotificationCounts> counts;
    std::thread::id thread;

    void operator()(NotificationCounts now)
    {
        std::lock_guard lock(mutex);
        counts.push_back(now);
        thread = std::this_thread::get_id();
        changed.notify_all();
    }
    bool waitFor(NotificationCounts wanted)
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 30s, [&] { return !counts.empty() && counts.back() == wanted; });
    }
};

class NotificationObservation : public ::testing::Test {
protected:
    fexo::test::ToolSandbox sandbox{FEXO_TOOL_PATH};
};

// Another process writes 1,000 records one by one, then (when told) logs out.
TEST_F(NotificationObservation, SeesEveryCommitOfAnotherProcessFoldedAndNeverMissesTheLast)
{
    fexo::test::StartGate start;
    fexo::test::StartGate logout;
    fexo::test::ForkedProcess writer([&] {
        start.pass();
        FeXOService service;
        for (int i = 0; i < 1000; ++i) service.write(record(i));
        logout.pass();
        service.logout();
        return 0;
    });
    FeXOService service;
    auto seen = std::make_shared<Seen>();
    auto observation = service.observeNotifications([seen](NotificationCounts now) { (*seen)(now); });
    ASSERT_TRUE(observation);
    start.open();
    ASSERT_TRUE(seen->waitFor({1000, 1000}));
    {
        std::lock_guard lock(seen->mutex);
        EXPECT_NE(seen->thread, std::this_thread::get_id());
        EXPECT_LT(seen->counts.size(), 1001u);
        for (std::size_t i = 1; i < seen->counts.size(); ++i) {
            EXPECT_EQ(seen->counts[i].unread, seen->counts[i].total); // each a moment of the store
            EXPECT_GE(seen->counts[i].total, seen->counts[i - 1].total);
        }
    }
    logout.open();
    EXPECT_TRUE(seen->waitFor({0, 0}));
    EXPECT_EQ(writer.wait(30s), 0);
}

TEST_F(NotificationObservation, CancelWaitsForTheRunningCallbackExceptFromInsideIt)
{
    FeXOService service;
    std::atomic<bool> inside{false};
    std::atomic<bool> release{false};
    std::atomic<int> calls{0};
    auto blocking = service.observeNotifications([&](NotificationCounts) {
        inside = true;
        while (!release) std::this_thread::yield();
    });
    fexo::NotificationObservation selfCancelling;
    std::mutex handle;
    {
        std::lock_guard lock(handle);
        selfCancelling = service.observeNotifications([&](NotificationCounts) {
            ++calls;
            std::lock_guard lock(handle);
            selfCancelling.cancel(); // on the observer thread: returns at once
        });
    }
    service.write(record(1));
    while (!inside) std::this_thread::yield();
    std::atomic<bool> cancelled{false};
    std::thread canceller([&] {
        blocking.cancel();
        cancelled = true;
    });
    std::this_thread::sleep_for(50ms); // room for a wrong cancel() to return early
    EXPECT_FALSE(cancelled);
    release = true;
    canceller.join();
    EXPECT_FALSE(blocking);
    // The self-cancelling observation ran once and is gone; a later write calls nobody.
    auto seen = std::make_shared<Seen>();
    auto last = service.observeNotifications([seen](NotificationCounts now) { (*seen)(now); });
    service.write(record(2));
    ASSERT_TRUE(seen->waitFor({2, 2}));
    EXPECT_EQ(calls, 1);
}

// Observations come and go on several threads while this and another process write.
TEST_F(NotificationObservation, StartsAndStopsWhileThisAndAnotherProcessWrite)
{
    fexo::test::StartGate start;
    fexo::test::ForkedProcess writer([&] {
        start.pass();
        FeXOService service;
        for (int i = 0; i < 300; ++i) service.write(record(1000 + i));
        return 0;
    });
    start.open();
    FeXOService service;
    std::atomic<bool> writing{true};
    std::thread localWriter([&] {
        for (int i = 0; i < 300; ++i) service.write(record(i));
        writing = false;
    });
    std::vector<std::thread> observers;
    for (int t = 0; t < 3; ++t) {
        observers.emplace_back([&] {
            while (writing) {
                auto observation = FeXOService(service).observeNotifications([](NotificationCounts) {});
                std::this_thread::yield();
            }
        });
    }
    localWriter.join();
    for (auto& observer : observers) observer.join();
    EXPECT_EQ(writer.wait(30s), 0);
    auto seen = std::make_shared<Seen>();
    auto observation = service.observeNotifications([seen](NotificationCounts now) { (*seen)(now); });
    service.deleteNotification("r0");
    EXPECT_TRUE(seen->waitFor({599, 599}));
}

} // namespace
