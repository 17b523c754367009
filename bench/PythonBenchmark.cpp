// The push road through the Python package against the same road in C++, against one loopback
// server: handleNotification until the content handler ran, one push at a time, median of 1,000
// in each. The Python side runs as a child process on the built package and shared library.

#include "BenchSupport.hpp"

#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>

#include <curl/curl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <iostream>
#include <sstream>

namespace {

constexpr int pushes = 1000;

// Median time of one push through the C++ library, in microseconds.
double cppMedian()
{
    const fexo::FeXONotificationExtensionHandler handler;
    const fexo::UNNotificationRequest request(
        "bench-push", std::make_shared<fexo::UNNotificationContent>(
                          "", "", fexo::JSONSerialization::jsonObject(fexo::bench::pushUserInfoJSON)));
    const auto pushOnce = [&] {
        auto delivered = std::make_shared<std::promise<void>>();
        auto future = delivered->get_future();
        handler.handleNotification(
            request, [delivered](std::shared_ptr<fexo::UNMutableNotificationContent>) { delivered->set_value(); });
        if (future.wait_for(std::chrono::seconds(10)) != std::future_status::ready)
            throw std::runtime_error("content handler not called");
    };
    for (int i = 0; i < 20; ++i) pushOnce();
    std::vector<double> times;
    for (int i = 0; i < pushes; ++i) {
        const auto start = std::chrono::steady_clock::now();
        pushOnce();
        times.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    std::nth_element(times.begin(), times.begin() + pushes / 2, times.end());
    return times[pushes / 2];
}

// The Python side's median, in microseconds; the child gets this process's configuration.
double pythonMedian(const std::filesystem::path& resources, const std::filesystem::path& appGroups)
{
    ::setenv("FEXO_RESOURCES_DIR", resources.c_str(), 1);
    ::setenv("FEXO_APP_GROUPS_DIR", appGroups.c_str(), 1);
    ::setenv("PYTHONPATH", FEXO_PYTHON_PACKAGE_DIR, 1);
    std::string userInfo = fexo::bench::pushUserInfoJSON;
    std::string quoted = "'";
    for (char c : userInfo) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    quoted += "'";
    const std::string command =
        "python3 " FEXO_BENCH_SOURCE_DIR "/python_push.py " + std::to_string(pushes) + " " + quoted;
    std::FILE* child = ::popen(command.c_str(), "r");
    if (child == nullptr) throw std::runtime_error("cannot start python3");
    char line[256] = {};
    const bool read = std::fgets(line, sizeof line, child) != nullptr;
    if (::pclose(child) != 0 || !read) throw std::runtime_error("the Python push road failed");
    return std::strtod(line, nullptr);
}

} // namespace

int main()
{
    using namespace fexo::bench;
    curl_global_init(CURL_GLOBAL_DEFAULT);
    TemporaryDirectory directory;
    LoopbackServer loopback;
    const auto resources = directory.path() / "resources";
    const auto appGroups = directory.path() / "app-groups";
    installConfiguration(resources, appGroups, loopback.baseURL());

    const double cpp = cppMedian();
    const double python = pythonMedian(resources, appGroups);
    char ratio[32];
    std::snprintf(ratio, sizeof ratio, "%.2f", python / cpp);
    std::ostringstream pythonTime, cppTime;
    pythonTime << python << " us";
    cppTime << cpp << " us";
    std::cout << "push road through Python (median of " << pushes << "): " << pythonTime.str()
              << "; through C++: " << cppTime.str() << "; ratio " << ratio << std::endl;
    appendSummary("push road through Python vs C++, median of 1,000", pythonTime.str(), cppTime.str(), ratio, "report",
                  "-");
    return 0;
}
