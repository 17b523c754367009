#include "BenchSupport.hpp"

#include <support/Configuration.hpp>

#include <httplib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace fexo::bench {

const std::string pushUserInfoJSON =
    R"({"recipientId":"recipient-0001","registration_id":"registration-0001",)"
    R"("aps":{"alert":{"title":"New message","body":"You have a new notification"},"mutable-content":1},)"
    R"("google.c.sender.id":"123456789012","gcm.message_id":"0:1700000000000000%abcdef","google.c.fid":"fid-0001"})";
const std::string contentRequestBody = R"({"recipientId":"recipient-0001","registrationId":"registration-0001"})";
const std::string contentAnswerBody =
    R"({"createdAt":721692800.25,"data":{"text":"Your parcel has been delivered to the front door.",)"
    R"("sender":"Parcel Service"},"errorCode":0,"errorMessage":"","id":"3F2504E0-4F89-41D3-9A0C-0305E82C3301",)"
    R"("isRead":false})";
const std::string registrationAnswerBody = R"({"errorMessage":null,"errors":[]})";
const std::string clientId = "bench-client-id";
const std::string clientSecret = "bench-client-secret-0123";
const std::string contentPath = "/api/Notification/GetNotificationContent";
const std::string registrationPath = "/api/Registration/RegisterNewDevice";

namespace {

// cpp-httplib compresses answers typed exactly "application/json" for every client that
// accepts compression (the session does), with brotli at its slowest level: about 2 ms per
// small answer on the server, which would drown the client's own cost. With the charset
// spelled out it sends the body as it is, as a production server would for 200 bytes.
const std::string answerContentType = "application/json; charset=utf-8";

} // namespace

BenchServer::BenchServer() : server_({.workers = 64, .recordRequests = false})
{
    server_.setHandler([this](const httplib::Request& request, httplib::Response& response) {
        const std::string* answer = request.method != "POST"           ? nullptr
                                    : request.path == contentPath      ? &contentAnswerBody
                                    : request.path == registrationPath ? &registrationAnswerBody
                                                                       : nullptr;
        if (answer == nullptr) {
            response.status = 404;
            return;
        }
        ++served_;
        {
            std::lock_guard lock(mutex_);
            lastBodies_[request.path] = request.body;
        }
        response.set_content(*answer, answerContentType);
    });
}

std::string BenchServer::lastBody(const std::string& path) const
{
    std::lock_guard lock(mutex_);
    const auto found = lastBodies_.find(path);
    return found == lastBodies_.end() ? std::string() : found->second;
}

void installConfiguration(const std::filesystem::path& resources, const std::filesystem::path& appGroups,
                          const std::string& baseURL)
{
    test::installConfiguration(resources, {.baseURL = baseURL,
                                           .clientSecret = clientSecret,
                                           .clientId = clientId,
                                           .appGroup = appGroup,
                                           .bundleId = "com.example.host"});
    ::setenv("FEXO_APP_GROUPS_DIR", appGroups.c_str(), 1);
}

std::uint64_t residentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::uint64_t size = 0;
    std::uint64_t resident = 0;
    statm >> size >> resident;
    return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::string recordJSON(const std::string& id, double createdAt)
{
    std::ostringstream out;
    out << std::setprecision(17) << R"({"createdAt":)" << createdAt
        << R"(,"data":{"text":"Your parcel has been delivered to the front door.","sender":"Parcel Service"},)"
        << R"("errorCode":0,"errorMessage":"","id":")" << id << R"(","isRead":false})";
    return out.str();
}

std::optional<std::filesystem::path> samplesDirectory()
{
    const char* path = std::getenv("FEXO_BENCH_SAMPLES");
    if (path == nullptr || *path == '\0') return std::nullopt;
    std::filesystem::create_directories(path);
    return std::filesystem::path(path);
}

double percentile99(const std::vector<double>& values)
{
    if (values.empty()) return 0;
    std::vector<double> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    const auto rank = static_cast<std::size_t>(std::ceil(0.99 * static_cast<double>(sorted.size())));
    return sorted[std::min(sorted.size(), std::max<std::size_t>(rank, 1)) - 1];
}

void appendSummary(const std::string& title, const std::string& project, const std::string& baseline,
                   const std::string& ratio, const std::string& goal, const std::string& met)
{
    const char* path = std::getenv("FEXO_BENCH_SUMMARY");
    if (path == nullptr || *path == '\0') return;
    std::ofstream out(path, std::ios::app);
    out << title << '|' << project << '|' << baseline << '|' << ratio << '|' << goal << '|' << met << '\n';
}

namespace {

// Keeps the time per iteration (in the run's own unit, as microseconds are used throughout)
// of every run and aggregate, by full name.
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs) {
            // The name as registered, without the "/iterations:…/repeats:…" decorations.
            const std::string name = run.run_name.function_name;
            if (run.run_type == Run::RT_Aggregate) {
                times[name + "#" + run.aggregate_name] = toMicroseconds(run);
                // With only aggregates reported, the median stands for the runs.
                if (run.aggregate_name == "median") times[name + "#"] = toMicroseconds(run);
            } else {
                // Several runs of one name (repetitions, possibly interleaved with other
                // benchmarks): keep the median, which a burst of disk or CPU load moves least.
                auto& all = samples[name];
                all.push_back(toMicroseconds(run));
                std::vector<double> sorted = all;
                std::sort(sorted.begin(), sorted.end());
                const std::size_t middle = sorted.size() / 2;
                times[name + "#"] = sorted.size() % 2 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
            }
        }
    }

    std::map<std::string, double> times;

private:
    static double toMicroseconds(const Run& run)
    {
        return run.GetAdjustedRealTime() * 1e6 / benchmark::GetTimeUnitMultiplier(run.time_unit);
    }

    std::map<std::string, std::vector<double>> samples;
};

std::string formatMicroseconds(double us)
{
    std::ostringstream out;
    out << std::fixed;
    if (us >= 1000)
        out << std::setprecision(2) << us / 1000 << " ms";
    else
        out << std::setprecision(1) << us << " us";
    return out.str();
}

std::string formatRatio(double ratio)
{
    std::ostringstream out;
    out << std::fixed << std::setprecision(ratio >= 100 ? 0 : 2) << ratio << "x";
    return out.str();
}

} // namespace

int runAndReport(int argc, char** argv, const std::vector<Figure>& figures)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::cout << "\n";
    int status = 0;
    for (const auto& figure : figures) {
        const auto project = reporter.times.find(figure.project + "#" + figure.aggregate);
        const auto baseline = reporter.times.find(figure.baseline + "#" + figure.aggregate);
        if (project == reporter.times.end() || baseline == reporter.times.end()) continue; // filtered out
        const double ratio =
            figure.baselineOverProject ? baseline->second / project->second : project->second / baseline->second;
        std::string goal = "report";
        std::string met = "-";
        if (figure.goal > 0) {
            goal = "<= " + formatRatio(figure.goal);
            met = ratio <= figure.goal ? "met" : "missed";
        }
        const std::string which = figure.baselineOverProject ? "baseline/project" : "project/baseline";
        std::cout << figure.title << ": project " << formatMicroseconds(project->second) << ", baseline "
                  << formatMicroseconds(baseline->second) << ", " << which << " " << formatRatio(ratio) << " (goal "
                  << goal << ": " << met << ")\n";
        appendSummary(figure.title, formatMicroseconds(project->second), formatMicroseconds(baseline->second),
                      formatRatio(ratio) + (figure.baselineOverProject ? " faster" : ""), goal, met);
    }
    return status;
}

} // namespace fexo::bench
