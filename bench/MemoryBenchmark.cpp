// Memory over many pushes in one process: the resident set after 100 pushes is the baseline,
// the growth from there to the last push is the figure. Run under LeakSanitizer, the same
// program shows that nothing is left unreleased at exit.
//
//   bench_memory [pushes]    (default 10000)

#include "BenchSupport.hpp"

#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>

#include <cstdlib>
#include <future>
#include <iostream>

int main(int argc, char** argv)
{
    using namespace fexo;
    using namespace fexo::bench;
    const int pushes = argc > 1 ? std::atoi(argv[1]) : 10000;
    constexpr int settled = 100;
    if (pushes <= settled) {
        std::cerr << "bench_memory: give more than " << settled << " pushes" << std::endl;
        return 2;
    }
    TemporaryDirectory directory;
    BenchServer server;
    installConfiguration(directory.path() / "resources", directory.path() / "app-groups", server.baseURL());

    const FeXONotificationExtensionHandler handler;
    const UNNotificationRequest request(
        "bench-push", std::make_shared<UNNotificationContent>("New message", "You have a new notification",
                                                              JSONSerialization::jsonObject(pushUserInfoJSON)));
    std::uint64_t baseline = 0;
    for (int i = 1; i <= pushes; ++i) {
        auto delivered = std::make_shared<std::promise<void>>();
        auto future = delivered->get_future();
        handler.handleNotification(
            request, [delivered](std::shared_ptr<UNMutableNotificationContent>) { delivered->set_value(); });
        if (future.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            std::cerr << "bench_memory: push " << i << " was not delivered" << std::endl;
            return 1;
        }
        if (i == settled) baseline = residentBytes();
    }
    const std::uint64_t final = residentBytes();
    const double growthKiB = (static_cast<double>(final) - static_cast<double>(baseline)) / 1024.0;
    const bool met = growthKiB <= 1024.0;
    std::cout << "memory over " << pushes << " pushes: RSS after " << settled << " pushes " << baseline / 1024
              << " KiB, after " << pushes << " pushes " << final / 1024 << " KiB, growth " << growthKiB
              << " KiB (goal <= 1024 KiB: " << (met ? "met" : "missed") << ")" << std::endl;
    appendSummary("RSS growth over " + std::to_string(pushes) + " pushes", std::to_string(final / 1024) + " KiB",
                  std::to_string(baseline / 1024) + " KiB after 100",
                  std::to_string(static_cast<long long>(growthKiB)) + " KiB", "<= 1024 KiB growth",
                  met ? "met" : "missed");
    return 0;
}
