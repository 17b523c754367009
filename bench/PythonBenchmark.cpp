// The push road through the Python package against the same road in C++: handleNotification
// until the content handler ran, one push at a time, against one loopback server in this
// process. Each side runs as a child process of its own (this program with --cpp, and
// python_push.py on the built package and shared library), in alternating rounds so that both
// meet the same machine; the figure is the median of the rounds' medians.

#include "BenchSupport.hpp"

#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>

#include <curl/curl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <iostream>
#include <sstream>

namespace {

constexpr int rounds = 11;
constexpr int pushesPerRound = 100;

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

// The child's side: `pushes` pushes through the C++ library after a warm-up; prints the
// median time of one, in microseconds.
int cppRoad(int pushes)
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
        return future.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    };
    for (int i = 0; i < 20; ++i)
        if (!pushOnce()) return 1;
    std::vector<double> times;
    for (int i = 0; i < pushes; ++i) {
        const auto start = std::chrono::steady_clock::now();
        if (!pushOnce()) return 1;
        times.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    std::printf("%.1f\n", median(times));
    return 0;
}

std::string shellQuoted(const std::string& text)
{
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// Runs one round's child and returns the median it printed.
double runChild(const std::string& command)
{
    std::FILE* child = ::popen(command.c_str(), "r");
    if (child == nullptr) throw std::runtime_error("cannot start " + command);
    char line[256] = {};
    const bool read = std::fgets(line, sizeof line, child) != nullptr;
    if (::pclose(child) != 0 || !read) throw std::runtime_error("the push road failed: " + command);
    return std::strtod(line, nullptr);
}

std::string microseconds(double value)
{
    std::ostringstream text;
    text.precision(1);
    text << std::fixed << value << " us";
    return text.str();
}

} // namespace

int main(int argc, char** argv)
{
    using namespace fexo::bench;
    curl_global_init(CURL_GLOBAL_DEFAULT);
    if (argc == 3 && std::strcmp(argv[1], "--cpp") == 0) return cppRoad(std::atoi(argv[2]));

    TemporaryDirectory directory;
    BenchServer loopback;
    const auto resources = directory.path() / "resources";
    const auto appGroups = directory.path() / "app-groups";
    installConfiguration(resources, appGroups, loopback.baseURL());
    // The children find the configuration and the package through their environment.
    ::setenv("FEXO_RESOURCES_DIR", resources.c_str(), 1);
    ::setenv("FEXO_APP_GROUPS_DIR", appGroups.c_str(), 1);
    ::setenv("PYTHONPATH", FEXO_PYTHON_PACKAGE_DIR, 1);

    const std::string count = std::to_string(pushesPerRound);
    const std::string cppCommand = shellQuoted(argv[0]) + " --cpp " + count;
    const std::string pythonCommand = "python3 " + shellQuoted(FEXO_BENCH_SOURCE_DIR "/python_push.py") + " " + count +
                                      " " + shellQuoted(pushUserInfoJSON);
    std::vector<double> cpp, python;
    for (int round = 0; round < rounds; ++round) {
        cpp.push_back(runChild(cppCommand));
        python.push_back(runChild(pythonCommand));
    }
    const double cppTime = median(cpp), pythonTime = median(python);
    char ratio[32];
    std::snprintf(ratio, sizeof ratio, "%.2f", pythonTime / cppTime);
    std::cout << "push road through Python (median of " << rounds << " rounds of " << pushesPerRound
              << "): " << microseconds(pythonTime) << "; through C++: " << microseconds(cppTime) << "; Python/C++ "
              << ratio << std::endl;
    appendSummary("push road through Python vs C++, median of 11 rounds x 100", microseconds(pythonTime),
                  microseconds(cppTime), ratio, "report", "-");
    return 0;
}
