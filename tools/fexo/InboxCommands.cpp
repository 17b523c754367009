#include <fexo/ChangeOutcome.hpp>
#include <fexo/Commands.hpp>

#include <common/TerminalText.hpp>

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/FeXOStoreChanges.hpp>

#include <nlohmann/json.hpp>

#include <csignal>
#include <iostream>
#include <memory>
#include <mutex>

namespace fexo::tool {

namespace {

// One line of `watch`: the counts and the newest record's id, title (its sender) and body, all
// read at one moment.
std::string watchLine(FeXOService& service, bool asJSON)
{
    const FeXOInboxSnapshot snapshot = service.inboxSnapshot(1);
    const NotificationCounts& counts = snapshot.counts;
    const Response* newest = snapshot.newest.empty() ? nullptr : &snapshot.newest.front();
    const std::string id = newest ? newest->id.value_or("") : "";
    const std::string title = newest && newest->data ? newest->data->sender.value_or("") : "";
    const std::string body = newest && newest->data ? newest->data->text.value_or("") : "";
    if (asJSON) {
        nlohmann::json line = {{"total", counts.total}, {"unread", counts.unread}, {"newest", nullptr}};
        if (newest) line["newest"] = {{"id", id}, {"title", title}, {"body", body}};
        return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
    std::string line = std::to_string(counts.total) + (counts.total == 1 ? " notification, " : " notifications, ") +
                       std::to_string(counts.unread) + " unread";
    if (newest) line += "; newest " + id + ": " + title + ": " + body;
    return line;
}

// Prints the counts now, then one line per callback, until SIGINT or SIGTERM.
int watch(bool asJSON)
{
    // Blocked before the observer thread starts, which inherits the mask: only sigwait() below
    // takes these signals.
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGINT);
    sigaddset(&stopping, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopping, nullptr);

    auto service = std::make_shared<FeXOService>();
    auto printing = std::make_shared<std::mutex>(); // the first line comes from this thread
    // The callback's counts are not used: a line is one snapshot of the counts and the newest.
    const auto print = [service, printing, asJSON](NotificationCounts) {
        const std::string line = watchLine(*service, asJSON);
        std::lock_guard lock(*printing);
        writeTerminalLine(std::cout, line);
        std::cout.flush();
    };
    auto observation = service->observeNotifications(print);
    if (!observation) {
        reportProblem("the store cannot be watched: " + observation.failure());
        return 1;
    }
    // The observer calls only on changes; the line of the state they start from is printed here,
    // after the observation is in place, so a change made once it is out is never missed.
    print({});
    int received = 0;
    sigwait(&stopping, &received);
    observation.cancel();
    return 0;
}

} // namespace

void addInboxCommands(CLI::App& app, const ToolOptions& options, int& exitCode)
{
    app.add_subcommand("unread", "Print how many stored notifications are not read")->callback([&options, &exitCode] {
        options.apply();
        std::cout << FeXOService().unreadCount() << std::endl;
        exitCode = 0;
    });

    app.add_subcommand("mark-all-read", "Mark every stored notification as read")->callback([&options, &exitCode] {
        options.apply();
        exitCode = exitStatus(FeXOStoreChanges(FeXOService()).markAllNotificationsAsRead());
    });

    auto asJSON = std::make_shared<bool>(false);
    auto* watchCommand = app.add_subcommand(
        "watch", "Print the counts and the newest notification now and after every change, until interrupted");
    watchCommand->add_flag("--json", *asJSON, "One JSON object per line: total, unread, newest {id, title, body}");
    watchCommand->callback([&options, &exitCode, asJSON] {
        options.apply();
        exitCode = watch(*asJSON);
    });
}

} // namespace fexo::tool
