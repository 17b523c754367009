#include <agent/RunOptions.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <sstream>

namespace fexo::agent {

namespace {

constexpr double century = 100.0 * 365.25 * 24 * 3600;

} // namespace

CLI::Validator finitePositive(const std::string& unit)
{
    return CLI::Validator(
        [unit](std::string& text) -> std::string {
            double value = 0;
            if (!CLI::detail::lexical_cast(text, value) || !std::isfinite(value) || value <= 0)
                return "must be a finite number of " + unit + " above 0, not " + text;
            return {};
        },
        unit == "seconds" ? "SECONDS" : "MIB");
}

std::chrono::milliseconds durationOf(double seconds)
{
    return std::chrono::milliseconds(static_cast<long long>(std::ceil(std::min(seconds, century) * 1000)));
}

namespace {

CLI::Validator wholeNumber(std::size_t lowest, std::size_t highest)
{
    return CLI::Validator(
        [lowest, highest](std::string& text) -> std::string {
            std::size_t value = 0;
            const bool digits =
                !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
            if (!digits || !CLI::detail::lexical_cast(text, value) || value < lowest || value > highest)
                return "must be a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest) +
                       ", not " + text;
            return {};
        },
        "N");
}

// A desktop entry id as the launcher and the docks match it: the file name without ".desktop".
CLI::Validator desktopEntryId()
{
    return CLI::Validator(
        [](std::string& text) -> std::string {
            if (text.ends_with(".desktop")) text.resize(text.size() - 8);
            const bool wellFormed = !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
                return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                       c == '-' || c == '_';
            });
            if (!wellFormed) return "must be a desktop entry id (letters, digits, '.', '-' and '_'), not " + text;
            return {};
        },
        "ID");
}

std::vector<std::string> words(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string word; stream >> word;) result.push_back(word);
    return result;
}

} // namespace

std::chrono::milliseconds RunOptions::timeLimit() const
{
    return durationOf(timeLimitSeconds);
}

std::size_t RunOptions::memoryLimitBytes() const
{
    const double bytes = std::ceil(memoryLimitMiB * 1024 * 1024);
    constexpr auto largest = static_cast<double>(std::numeric_limits<std::size_t>::max() / 2);
    return static_cast<std::size_t>(std::min(bytes, largest));
}

std::vector<std::string> RunOptions::extensionCommand() const
{
    if (!extension.empty()) return words(extension);
    // `fexo handle-push`, from the directory of this executable (where fexo is installed beside it).
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    return {(error ? std::filesystem::path("fexo") : self.parent_path() / "fexo").string(), "handle-push"};
}

void addRunOptions(CLI::App& command, RunOptions& options)
{
    command
        .add_option("--extension", options.extension,
                    "The extension program and its arguments, separated by blanks; it reads the push's JSON on "
                    "standard input and prints the content as its last line (default: fexo handle-push)")
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                const auto command = words(text);
                if (command.empty()) return "names no program";
                std::string reason;
                return executableProgram(command.front(), reason) ? std::string() : reason;
            },
            "PROGRAM"));
    command.add_option("--time-limit", options.timeLimitSeconds, "Seconds an extension may run")
        ->capture_default_str()
        ->check(finitePositive("seconds"));
    command.add_option("--memory-limit", options.memoryLimitMiB, "MiB of resident memory an extension may use")
        ->capture_default_str()
        ->check(finitePositive("MiB"));
    command
        .add_option("--concurrency", options.concurrency,
                    "Extension processes at once; above 1, pushes no longer run in arrival order")
        ->capture_default_str()
        ->check(wholeNumber(1, 1024));
    command.add_option("--queue", options.queueCapacity, "Pushes that may wait for an extension")
        ->capture_default_str()
        ->check(wholeNumber(1, 1000000));
    command.add_option("--app-name", options.appName, "Application name of the notifications")->capture_default_str();
    command.add_option("--icon", options.icon, "The notifications' app icon: an icon name or a file path");
    command
        .add_option("--desktop-entry", options.desktopEntry,
                    "The app's desktop entry id (its .desktop file's name): named in each notification, the "
                    "unread count's launcher badge, and opened on a click when there is no --host-command")
        ->check(desktopEntryId());
    command.add_option("--host-command", options.hostCommand,
                       "Shell command run when a notification is clicked, with FEXO_RECORD_ID, FEXO_REQUEST_ID and "
                       "the desktop's XDG_ACTIVATION_TOKEN and DESKTOP_STARTUP_ID set");
}

std::optional<std::string> executableProgram(const std::string& program, std::string& reason)
{
    const auto usable = [&](const std::string& path) {
        struct stat status { };
        if (::stat(path.c_str(), &status) != 0) {
            reason = "the extension program " + path + " cannot be found: " + std::strerror(errno);
            return false;
        }
        if (!S_ISREG(status.st_mode) || ::access(path.c_str(), X_OK) != 0) {
            reason = "the extension program " + path + " is not an executable file";
            return false;
        }
        return true;
    };
    if (program.find('/') != std::string::npos) return usable(program) ? std::optional(program) : std::nullopt;
    const char* path = std::getenv("PATH");
    std::istringstream directories(path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin");
    for (std::string directory; std::getline(directories, directory, ':');) {
        const auto candidate = (directory.empty() ? std::string(".") : directory) + "/" + program;
        if (::access(candidate.c_str(), X_OK) == 0 && usable(candidate)) return candidate;
    }
    reason = "the extension program " + program + " is not found in PATH";
    return std::nullopt;
}

} // namespace fexo::agent
