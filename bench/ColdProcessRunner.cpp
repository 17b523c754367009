// Times whole processes and nothing else: each run is one posix_spawn and one wait4, with the
// monotonic clock read just before the one and just after the other, so no shell, interpreter
// or timing tool is added to either side. The peak resident set, CPU times, page faults and
// context switches come from the same wait4's rusage.
//
//   bench_cold_runner [--runs N] [--warm N] [--samples FILE] [--goal RATIO]
//                     --name A PROGRAM ARGS... --name B PROGRAM ARGS... [--name C PROGRAM ARGS...]...
//
// A is measured against the baseline B; any further command C is a reference, reported as A / C
// and C / B. Each round runs every command once, the order rotated from round to round (A B,
// then B A; A B C, B C A, C A B), so that all meet the same machine and none is always the one
// that runs right after another. Every run must exit 0 (standard output and error go to
// /dev/null). Prints the medians and the ratios; with --goal, A / B against it, and appends
// summary lines to $FEXO_BENCH_SUMMARY when set. --samples writes every run as CSV for the plots.
//
// Deliberately free of the project's libraries: a child's peak RSS as the kernel reports it
// can include the pages of the process it was spawned from, so this runner stays far smaller
// than what it measures (its own peak is printed so that anyone can check).

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace {

struct Command {
    std::string name;
    std::vector<char*> argv; // null-terminated
};

struct Sample {
    double wallMs = 0;
    long maxRssKiB = 0;
    double userMs = 0;
    double systemMs = 0;
    long minorFaults = 0;
    long majorFaults = 0;
    long voluntarySwitches = 0;
    long involuntarySwitches = 0;
};

double milliseconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

double nowMs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

[[noreturn]] void fail(const std::string& message)
{
    std::fprintf(stderr, "bench_cold_runner: %s\n", message.c_str());
    std::exit(2);
}

Sample runOnce(const Command& command, const posix_spawn_file_actions_t& quiet)
{
    pid_t child = 0;
    int status = 0;
    rusage usage{};
    const double start = nowMs();
    const int spawned = posix_spawnp(&child, command.argv[0], &quiet, nullptr, command.argv.data(), environ);
    if (spawned != 0) fail(command.name + ": cannot start " + command.argv[0] + ": " + std::strerror(spawned));
    pid_t waited = 0;
    do {
        waited = wait4(child, &status, 0, &usage);
    } while (waited < 0 && errno == EINTR);
    const double end = nowMs();
    if (waited != child) fail(command.name + ": wait4 failed");
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        fail(command.name + ": run failed (" +
             (WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                : "signal " + std::to_string(WTERMSIG(status))) +
             ")");
    }
    return {end - start,
            usage.ru_maxrss,
            milliseconds(usage.ru_utime),
            milliseconds(usage.ru_stime),
            usage.ru_minflt,
            usage.ru_majflt,
            usage.ru_nvcsw,
            usage.ru_nivcsw};
}

template <class Field>
double median(const std::vector<Sample>& samples, Field field)
{
    std::vector<double> values;
    for (const auto& sample : samples) values.push_back(static_cast<double>(sample.*field));
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void appendSummary(const std::string& line)
{
    const char* path = std::getenv("FEXO_BENCH_SUMMARY");
    if (path == nullptr || *path == '\0') return;
    std::ofstream(path, std::ios::app) << line << '\n';
}

std::string format(const char* pattern, double value)
{
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    int runs = 30;
    int warm = 3;
    double goal = 0;
    std::string samplesPath;
    std::vector<Command> commands;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool hasValue = i + 1 < argc;
        if (argument == "--name" && hasValue) {
            commands.push_back({argv[++i], {}});
        } else if (!commands.empty()) {
            commands.back().argv.push_back(argv[i]);
        } else if (argument == "--runs" && hasValue) {
            runs = std::atoi(argv[++i]);
        } else if (argument == "--warm" && hasValue) {
            warm = std::atoi(argv[++i]);
        } else if (argument == "--goal" && hasValue) {
            goal = std::atof(argv[++i]);
        } else if (argument == "--samples" && hasValue) {
            samplesPath = argv[++i];
        } else {
            fail("unknown argument " + argument);
        }
    }
    const bool named = std::all_of(commands.begin(), commands.end(), [](const Command& c) { return !c.argv.empty(); });
    if (commands.size() < 2 || !named || runs < 1) {
        fail("usage: bench_cold_runner [--runs N] [--warm N] [--samples FILE] [--goal RATIO] --name A PROGRAM "
             "ARGS... --name B PROGRAM ARGS... [--name C PROGRAM ARGS...]...");
    }
    const std::size_t count = commands.size();
    for (auto& command : commands) command.argv.push_back(nullptr);

    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&quiet, STDERR_FILENO, "/dev/null", O_WRONLY, 0);

    // Page cache, the store's file and the server's connection pool warmed for both.
    for (int i = 0; i < warm; ++i) {
        for (const auto& command : commands) runOnce(command, quiet);
    }
    std::vector<std::vector<Sample>> samples(count);
    for (int i = 0; i < runs; ++i) {
        for (std::size_t k = 0; k < count; ++k) {
            const std::size_t c = (static_cast<std::size_t>(i) + k) % count;
            samples[c].push_back(runOnce(commands[c], quiet));
        }
    }
    posix_spawn_file_actions_destroy(&quiet);

    if (!samplesPath.empty()) {
        std::ofstream out(samplesPath);
        out << "command,run,wall_ms,max_rss_kib,user_ms,system_ms,minor_faults,major_faults,voluntary_switches,"
               "involuntary_switches\n";
        for (std::size_t c = 0; c < count; ++c) {
            for (std::size_t i = 0; i < samples[c].size(); ++i) {
                const auto& s = samples[c][i];
                out << commands[c].name << ',' << i << ',' << s.wallMs << ',' << s.maxRssKiB << ',' << s.userMs << ','
                    << s.systemMs << ',' << s.minorFaults << ',' << s.majorFaults << ',' << s.voluntarySwitches << ','
                    << s.involuntarySwitches << '\n';
            }
        }
        if (!out) fail("cannot write " + samplesPath);
    }

    // VmHWM, not getrusage: the kernel's figure for this process also counts the pages of
    // the process that spawned it.
    long ownPeakKiB = -1;
    {
        std::ifstream status("/proc/self/status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.rfind("VmHWM:", 0) == 0) ownPeakKiB = std::atol(line.c_str() + 6);
        }
    }
    const std::string& a = commands[0].name;
    const std::string& b = commands[1].name;
    std::printf("%d runs each, alternated (posix_spawn to wait4); runner's own peak RSS %ld KiB\n", runs, ownPeakKiB);
    std::printf("%-24s", "median");
    for (const auto& command : commands) std::printf(" %12s", command.name.c_str());
    std::printf(" %8s", "A / B");
    for (std::size_t c = 2; c < count; ++c) std::printf(" %8s %8s", "A / C", "C / B");
    std::printf("\n");
    struct Row {
        const char* label;
        double Sample::*real;
        long Sample::*whole;
        bool isFigure;
    };
    const Row rows[] = {
        {"wall time (ms)", &Sample::wallMs, nullptr, true},
        {"peak RSS (KiB)", nullptr, &Sample::maxRssKiB, true},
        {"user CPU (ms)", &Sample::userMs, nullptr, false},
        {"system CPU (ms)", &Sample::systemMs, nullptr, false},
        {"minor page faults", nullptr, &Sample::minorFaults, false},
        {"voluntary switches", nullptr, &Sample::voluntarySwitches, false},
    };
    for (const auto& row : rows) {
        std::vector<double> medians;
        for (const auto& taken : samples)
            medians.push_back(row.real ? median(taken, row.real) : median(taken, row.whole));
        const auto over = [](double x, double y) { return y > 0 ? x / y : 0; };
        const double ma = medians[0];
        const double mb = medians[1];
        const double ratio = over(ma, mb);
        const bool isTime = row.real != nullptr;
        const auto shown = [&](double value) { return format(isTime ? "%.2f ms" : "%.0f KiB", value); };
        std::printf("%-24s", row.label);
        for (const double value : medians) std::printf(" %12.2f", value);
        std::printf(" %7.2fx", ratio);
        for (std::size_t c = 2; c < count; ++c) {
            std::printf(" %7.2fx %7.2fx", over(ma, medians[c]), over(medians[c], mb));
            if (!row.isFigure || goal <= 0) continue;
            const std::string what = std::string(isTime ? "time" : "peak RSS") + ", median of " + std::to_string(runs);
            appendSummary("cold " + a + " " + what + ", against " + commands[c].name + "|" + shown(ma) + "|" +
                          shown(medians[c]) + " (" + commands[c].name + ")|" + format("%.2fx", over(ma, medians[c])) +
                          "|report|–");
            appendSummary("cold " + commands[c].name + " " + what + "|" + shown(medians[c]) + "|" + shown(mb) + " (" +
                          b + ")|" + format("%.2fx", over(medians[c], mb)) + "|report|–");
        }
        if (row.isFigure && goal > 0) {
            const bool met = ratio <= goal;
            std::printf("  (goal <= %.2fx: %s)", goal, met ? "met" : "missed");
            appendSummary("cold " + a + " " + (isTime ? "time" : "peak RSS") + ", median of " + std::to_string(runs) +
                          " (spawn to wait4)|" + shown(ma) + "|" + shown(mb) + " (" + b + ")|" +
                          format("%.2fx", ratio) + "|" + format("<= %.2fx", goal) + "|" + (met ? "met" : "missed"));
        }
        std::printf("\n");
    }
    return 0;
}
