#include <fexo/ChangeOutcome.hpp>
#include <fexo/Commands.hpp>
#include <fexo/Input.hpp>

#include <common/TerminalText.hpp>

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/FeXOStoreChanges.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <iostream>
#include <limits>
#include <optional>

namespace fexo::tool {

namespace {

// A stored record larger than this is no record any extension wrote.
constexpr std::size_t maximumRecordBytes = 1024 * 1024;

// A record with what the list shows of it. The date and the error stay internal to Response,
// so they are read from the record's JSON form, which carries every field.
struct Listed {
    Response record;
    std::optional<double> createdAt; // seconds since 2001-01-01 00:00:00 UTC
    std::string text;
};

Listed listed(Response record)
{
    const auto form = nlohmann::json::parse(JSONEncoder{}.encode(record));
    Listed entry{std::move(record), std::nullopt, ""};
    if (const auto found = form.find("createdAt"); found != form.end() && found->is_number()) {
        entry.createdAt = found->get<double>();
    }
    if (entry.record.carriesNotification()) {
        entry.text = entry.record.data->text.value_or("");
    } else if (form.contains("errorCode") || form.contains("errorMessage")) {
        entry.text = "[refusal] error " + (form.contains("errorCode") ? form["errorCode"].dump() : std::string("-")) +
                     ": " + form.value("errorMessage", "");
    } else {
        entry.text = "[refusal] no text and no sender";
    }
    return entry;
}

// Every stored record, notifications or not, in the inbox's order: newest createdAt first, ties
// and the records without a date by key (the bare prefix and then the id).
std::vector<Listed> everyRecord()
{
    std::vector<Listed> entries;
    for (auto& record : FeXOService().fetchAllNotifications().value_or(std::vector<Response>{}))
        entries.push_back(listed(std::move(record)));
    std::sort(entries.begin(), entries.end(), [](const Listed& a, const Listed& b) {
        if (a.createdAt.has_value() != b.createdAt.has_value()) return a.createdAt.has_value();
        if (a.createdAt && *a.createdAt != *b.createdAt) return *a.createdAt > *b.createdAt;
        return a.record.id.value_or("") < b.record.id.value_or("");
    });
    return entries;
}

std::string isoDate(const std::optional<double>& sinceReferenceDate)
{
    if (!sinceReferenceDate) return "-";
    const double since1970 = Date(*sinceReferenceDate).timeIntervalSince1970();
    // Years 1 to 9999 only: the rest does not fit the column (or a time_t).
    if (!std::isfinite(since1970) || since1970 < -62135596800.0 || since1970 >= 253402300800.0) return "?";
    const auto seconds = static_cast<std::time_t>(std::floor(since1970));
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

// `text` fitted to `width` characters and padded with blanks to it.
std::string column(const std::string& text, std::size_t width)
{
    std::string cell = terminalColumn(text, width);
    const auto characters = static_cast<std::size_t>(
        std::count_if(cell.begin(), cell.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
    return cell + std::string(width + 1 - characters, ' ');
}

// Without a limit: every stored record, the server's refusals included (marked so); with one, a
// page of the inbox, which holds the notifications only.
int list(bool asJSON, std::optional<std::size_t> limit, const std::string& after)
{
    std::vector<Listed> entries;
    std::string next;
    if (limit) {
        auto page = FeXOService().fetchNotifications(*limit, after);
        if (!page.isSuccess()) {
            reportProblem("--after is not a cursor that a page printed: " + page.error().localizedDescription());
            return 1;
        }
        for (auto& record : page.value().records) entries.push_back(listed(std::move(record)));
        next = page.value().next;
    } else {
        entries = everyRecord();
    }
    if (asJSON) {
        std::string out = "[";
        for (std::size_t i = 0; i < entries.size(); ++i) {
            if (i > 0) out += ",";
            out += JSONEncoder{}.encode(entries[i].record);
        }
        out += "]";
        if (limit)
            out = "{\"records\":" + out + ",\"next\":" + (next.empty() ? "null" : nlohmann::json(next).dump()) + "}";
        std::cout << out << std::endl;
        return 0;
    }
    std::size_t notifications = 0;
    std::size_t unread = 0;
    writeTerminalLine(std::cout,
                      column("ID", 36) + column("CREATED", 20) + column("READ", 4) + column("SENDER", 16) + "TEXT");
    for (const auto& entry : entries) {
        const Response& r = entry.record;
        const bool read = r.isRead.value_or(false);
        if (r.carriesNotification()) {
            ++notifications;
            if (!read) ++unread;
        }
        writeTerminalLine(std::cout, column(r.id.value_or("-"), 36) + column(isoDate(entry.createdAt), 20) +
                                         column(read ? "yes" : "no", 4) +
                                         column(r.data ? r.data->sender.value_or("") : "", 16) +
                                         terminalColumn(entry.text, 60));
    }
    const std::size_t refusals = entries.size() - notifications;
    std::cout << notifications << (notifications == 1 ? " notification, " : " notifications, ") << unread << " unread"
              << (limit ? " on this page" : "");
    if (refusals > 0) std::cout << ", " << refusals << (refusals == 1 ? " refusal" : " refusals");
    std::cout << std::endl;
    if (limit) std::cout << "next: " << (next.empty() ? "-" : next) << std::endl;
    return 0;
}

int show(const std::string& id)
{
    const auto record = FeXOService().fetchNotification(id);
    if (!record) {
        reportProblem("no notification with id \"" + id + "\"");
        return 1;
    }
    std::cout << JSONEncoder{}.encode(*record) << std::endl;
    return 0;
}

int markRead(const std::string& id)
{
    FeXOService service;
    const bool present = service.fetchNotification(id).has_value();
    const bool kept = FeXOStoreChanges(service).markNotificationAsRead(id).isSuccess();
    return present && kept ? 0 : 1;
}

int write(const std::string& input)
{
    const auto bytes = readInput(input, maximumRecordBytes, "the record");
    if (!bytes) return 1;
    Response record;
    try {
        record = JSONDecoder{}.decode<Response>(*bytes);
    } catch (const DecodingError& error) {
        reportProblem(error.description());
        return 1;
    }
    return exitStatus(FeXOStoreChanges(FeXOService()).write(record));
}

} // namespace

void addStoreCommands(CLI::App& app, const ToolOptions& options, int& exitCode)
{
    auto* listCommand = app.add_subcommand(
        "list", "List every stored record, newest first, the server's refusals marked; with --limit, one page of "
                "the notifications");
    auto asJSON = std::make_shared<bool>(false);
    auto limit = std::make_shared<std::size_t>(0);
    auto after = std::make_shared<std::string>();
    listCommand->add_flag("--json", *asJSON,
                          "One JSON array of the records in their stored form; with --limit, "
                          "{\"records\":[...],\"next\":CURSOR or null}");
    auto* limitOption = listCommand->add_option("--limit", *limit, "Print one page of at most N records")
                            ->check(CLI::Validator(
                                [](std::string& text) -> std::string {
                                    std::size_t value = 0;
                                    if (!CLI::detail::lexical_cast(text, value) || value < 1)
                                        return "a page holds a whole number of records, 1 or more, not " + text;
                                    return {};
                                },
                                "N"));
    listCommand->add_option("--after", *after, "The cursor that the previous page printed")->needs(limitOption);
    listCommand->callback([&options, &exitCode, asJSON, limit, limitOption, after] {
        options.apply();
        exitCode = list(*asJSON, limitOption->count() > 0 ? std::optional(*limit) : std::nullopt, *after);
    });

    auto id = std::make_shared<std::string>();
    auto* showCommand = app.add_subcommand("show", "Print one stored notification's JSON");
    showCommand->add_option("ID", *id, "The notification's id")->required();
    showCommand->callback([&options, &exitCode, id] {
        options.apply();
        exitCode = show(*id);
    });

    auto* markCommand = app.add_subcommand("mark-read", "Mark a stored notification as read");
    markCommand->add_option("ID", *id, "The notification's id")->required();
    markCommand->callback([&options, &exitCode, id] {
        options.apply();
        exitCode = markRead(*id);
    });

    auto* deleteCommand = app.add_subcommand("delete", "Delete one stored notification");
    deleteCommand->add_option("ID", *id, "The notification's id")->required();
    deleteCommand->callback([&options, &exitCode, id] {
        options.apply();
        exitCode = exitStatus(FeXOStoreChanges(FeXOService()).deleteNotification(*id));
    });

    app.add_subcommand("delete-all", "Delete every stored notification")->callback([&options, &exitCode] {
        options.apply();
        exitCode = exitStatus(FeXOStoreChanges(FeXOService()).deleteAllNotifications());
    });

    app.add_subcommand("logout", "Log out: delete every stored notification (the device stays registered)")
        ->callback([&options, &exitCode] {
            options.apply();
            exitCode = exitStatus(FeXOStoreChanges(FeXOService()).logout());
        });

    auto input = std::make_shared<std::string>("-");
    auto* writeCommand = app.add_subcommand("write", "Store one notification record read as JSON");
    writeCommand->add_option("FILE", *input, "The record's JSON; - for standard input")->capture_default_str();
    writeCommand->callback([&options, &exitCode, input] {
        options.apply();
        exitCode = write(*input);
    });
}

} // namespace fexo::tool
