#include <fexo/Commands.hpp>
#include <fexo/Input.hpp>

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <iostream>

namespace fexo::tool {

namespace {

// Newest first; records without a date last, in their stored order.
void sortNewestFirst(std::vector<Response>& records)
{
    std::stable_sort(records.begin(), records.end(), [](const Response& a, const Response& b) {
        const auto& x = ResponseAccess::createdAt(a);
        const auto& y = ResponseAccess::createdAt(b);
        if (x && y) return *x > *y;
        return x.has_value() && !y.has_value();
    });
}

std::string isoDate(const std::optional<Date>& date)
{
    if (!date) return "-";
    const std::time_t seconds = static_cast<std::time_t>(date->timeIntervalSince1970());
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::string cell(std::string text, std::size_t width)
{
    for (auto& c : text) {
        if (c == '\n' || c == '\t') c = ' ';
    }
    if (text.size() > width) text = text.substr(0, width - 1) + "~";
    return text;
}

int list(bool asJSON)
{
    auto records = FeXOService().fetchAllNotifications().value_or(std::vector<Response>{});
    sortNewestFirst(records);
    if (asJSON) {
        std::string out = "[";
        for (std::size_t i = 0; i < records.size(); ++i) {
            if (i > 0) out += ",";
            out += JSONEncoder{}.encode(records[i]);
        }
        std::cout << out << "]" << std::endl;
        return 0;
    }
    std::size_t unread = 0;
    std::cout << std::left << std::setw(37) << "ID" << std::setw(21) << "CREATED" << std::setw(5) << "READ"
              << std::setw(17) << "SENDER" << "TEXT" << '\n';
    for (const auto& r : records) {
        const bool read = r.isRead.value_or(false);
        if (!read) ++unread;
        std::cout << std::setw(37) << cell(r.id.value_or("-"), 36) << std::setw(21)
                  << isoDate(ResponseAccess::createdAt(r)) << std::setw(5) << (read ? "yes" : "no") << std::setw(17)
                  << cell(r.data ? r.data->sender.value_or("") : "", 16) << cell(r.data ? r.data->text.value_or("") : "", 60)
                  << '\n';
    }
    std::cout << records.size() << (records.size() == 1 ? " notification, " : " notifications, ") << unread
              << " unread" << std::endl;
    return 0;
}

int show(const std::string& id)
{
    const auto record = FeXOService().fetchNotification(id);
    if (!record) {
        std::cerr << "fexo: no notification with id \"" << id << "\"" << std::endl;
        return 1;
    }
    std::cout << JSONEncoder{}.encode(*record) << std::endl;
    return 0;
}

int markRead(const std::string& id)
{
    FeXOService service;
    const bool present = service.fetchNotification(id).has_value();
    service.markNotificationAsRead(id);
    return present ? 0 : 1;
}

int write(const std::string& input)
{
    const auto bytes = readInput(input);
    if (!bytes) return 1;
    Response record;
    try {
        record = JSONDecoder{}.decode<Response>(*bytes);
    } catch (const DecodingError& error) {
        std::cerr << "fexo: " << error.description() << std::endl;
        return 1;
    }
    FeXOService().write(record);
    return 0;
}

} // namespace

void addStoreCommands(CLI::App& app, const ToolOptions& options, int& exitCode)
{
    auto* listCommand = app.add_subcommand("list", "List the stored notifications, newest first");
    auto asJSON = std::make_shared<bool>(false);
    listCommand->add_flag("--json", *asJSON, "One JSON array of the records in their stored form");
    listCommand->callback([&options, &exitCode, asJSON] {
        options.apply();
        exitCode = list(*asJSON);
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
        FeXOService().deleteNotification(*id);
        exitCode = 0;
    });

    app.add_subcommand("delete-all", "Delete every stored notification")->callback([&options, &exitCode] {
        options.apply();
        FeXOService().deleteAllNotifications();
        exitCode = 0;
    });

    app.add_subcommand("logout", "Log out: delete every stored notification (the device stays registered)")
        ->callback([&options, &exitCode] {
            options.apply();
            FeXOService().logout();
            exitCode = 0;
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
