#pragma once

// Shared pieces of the benchmarks: the server that the project and its baselines talk to, the
// configuration and app-group directory of the process, the data every figure uses, and the
// reporter that prints each figure against its baseline.

#include <support/LoopbackServer.hpp>
#include <support/TemporaryDirectory.hpp>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace fexo::bench {

// The push's user-info, the request body the extension sends for it, and the record the
// server answers with.
extern const std::string pushUserInfoJSON;
extern const std::string contentRequestBody;
extern const std::string contentAnswerBody;
extern const std::string registrationAnswerBody;
extern const std::string clientId;
extern const std::string clientSecret;
extern const std::string contentPath;
extern const std::string registrationPath;

// The FeXO server as every benchmark meets it, on the tests' loopback server: every POST to the
// content path gets contentAnswerBody, to the registration path registrationAnswerBody, anything
// else 404. Enough workers that idle keep-alive connections of earlier clients never starve new
// ones, and no request kept beyond the latest body of each path, so that memory stays flat.
class BenchServer {
public:
    BenchServer();

    std::string baseURL() const { return server_.baseURL(); }
    std::uint64_t requestsServed() const { return served_.load(); }
    // The body of the latest request to `path`, so that a baseline sends exactly what the
    // project sent.
    std::string lastBody(const std::string& path) const;

private:
    std::atomic<std::uint64_t> served_{0};
    mutable std::mutex mutex_;
    std::map<std::string, std::string> lastBodies_;
    test::LoopbackServer server_; // last: stopped before the members its handler uses go
};

using fexo::test::TemporaryDirectory;

constexpr const char* appGroup = "group.bench.fexo";

// Writes the configuration file naming `baseURL` into `resources` (the benchmarks' credentials
// and app group), points the bundle at it, forgets any configuration loaded before, and makes
// `appGroups` the root of the app-group stores. Stores opened afterwards live there.
void installConfiguration(const std::filesystem::path& resources, const std::filesystem::path& appGroups,
                          const std::string& baseURL);

// Resident set size of this process now, in bytes.
std::uint64_t residentBytes();

// The stored record with a given id, as the store keeps it: the answer with id and createdAt.
std::string recordJSON(const std::string& id, double createdAt);

// A figure: the project's benchmark against its baseline's, compared on one aggregate (or on
// the median of the runs of that name when `aggregate` is empty).
struct Figure {
    std::string title;
    std::string project;
    std::string baseline;
    std::string aggregate;
    double goal = 0;                  // ratio the project must not exceed; 0: reported only
    bool baselineOverProject = false; // report baseline / project (how much faster the project is)
};

// Runs the registered benchmarks with a console reporter, then prints every figure with both
// times and the ratio, and appends one summary line per figure to $FEXO_BENCH_SUMMARY when set:
//   title|project time|baseline time|ratio|goal|met
// Returns the process's exit status.
int runAndReport(int argc, char** argv, const std::vector<Figure>& figures);

// Appends one summary line (same layout) for a figure measured outside Google Benchmark.
void appendSummary(const std::string& title, const std::string& project, const std::string& baseline,
                   const std::string& ratio, const std::string& goal, const std::string& met);

// Where the raw samples of the figures go for the plots (bench/plots.py): the directory named
// by $FEXO_BENCH_SAMPLES, created when missing; nothing when unset.
std::optional<std::filesystem::path> samplesDirectory();

// The 99th percentile of the repetition times, for ComputeStatistics.
double percentile99(const std::vector<double>& values);

} // namespace fexo::bench
