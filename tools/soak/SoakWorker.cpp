// soak-worker: one of several processes that hammer one app-group store at once, and the
// checker that judges the store afterwards.
//
//   soak-worker run --worker K --server URL --until EPOCH_SECONDS --log FILE
//       Until the deadline: handles pushes queued on the development server (the extension's
//       road), writes, marks as read and deletes records of its own, and lists everything.
//       Only worker K touches K's records (writes carry ids "wK-...", pushes carry the sender
//       "worker-K"), so the last confirmed form of each record is known exactly.
//   soak-worker verify LOG...
//       Replays the logs and compares them with the store. Exit 0 when nothing was lost.
//
// Log protocol, one line each, written with write(2) straight to the file so that a SIGKILL
// cannot lose a line that was written:
//   B <op> <id> <json-or-dash>   before the operation starts (op: W write, M mark, D delete)
//   E                            after it returned
//   P <id> <json>                a push whose record the extension stored, confirmed after
//                                the content handler ran and the record was found
// An operation begun but never ended (the process was killed in between) may or may not have
// taken effect; both outcomes are accepted for that record.

#include <common/ExtensionRoad.hpp>

#include <FeXONotificationService/FeXOConfigurationCheck.hpp>
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>

#include <httplib.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using fexo::Response;

std::string encode(const Response& record)
{
    return fexo::JSONEncoder::serialize(nlohmann::json(record));
}

class Log {
public:
    explicit Log(const std::string& path) : fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600))
    {
        if (fd_ < 0) {
            std::perror(path.c_str());
            std::exit(2);
        }
    }
    ~Log() { ::close(fd_); }

    void line(const std::string& text)
    {
        const std::string whole = text + "\n";
        if (::write(fd_, whole.data(), whole.size()) != static_cast<ssize_t>(whole.size())) {
            std::perror("log");
            std::exit(2);
        }
    }

private:
    int fd_;
};

struct Arguments {
    int worker = 0;
    std::string server;
    double until = 0;
    std::string log;
    std::string clientId;
    std::string clientSecret;
};

// By value: a range-for over *fetchAllNotifications() would walk a destroyed temporary.
std::vector<Response> listAll(fexo::FeXOService& service)
{
    return service.fetchAllNotifications().value_or(std::vector<Response>{});
}

double now()
{
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

int run(const Arguments& arguments)
{
    const std::string me = "w" + std::to_string(arguments.worker);
    const std::string incarnation = me + "-" + std::to_string(::getpid());
    const std::string sender = "worker-" + std::to_string(arguments.worker);
    std::mt19937 random(static_cast<unsigned>(::getpid()) * 7919u + static_cast<unsigned>(arguments.worker));
    Log log(arguments.log);
    log.line("\nS " + incarnation); // ends a line that a kill may have left unfinished
    fexo::FeXOService service;

    // What this worker owns: taken from the store, so that a restart picks up where the
    // killed incarnation left (including a record whose write was never confirmed).
    std::map<std::string, Response> own;
    auto ownsRecord = [&](const Response& record) {
        return record.id && (record.id->starts_with(me + "-") || (record.data && record.data->sender == sender));
    };
    for (const auto& record : listAll(service))
        if (ownsRecord(record)) own[*record.id] = record;

    httplib::Client client(arguments.server);
    client.set_connection_timeout(5);
    client.set_read_timeout(10);
    const httplib::Headers headers{{"client_id", arguments.clientId}, {"client_secret", arguments.clientSecret}};

    long counter = 0;
    long listMismatches = 0;
    auto pick = [&]() -> std::string {
        auto at = own.begin();
        std::advance(at, static_cast<long>(random() % own.size()));
        return at->first;
    };
    while (now() < arguments.until) {
        const int dice = static_cast<int>(random() % 100);
        const std::string tag = incarnation + "-" + std::to_string(++counter);
        if (dice < 20) {
            // A push: queue it on the server, then run the extension on the user-info it gave.
            nlohmann::json queued{{"recipientId", incarnation}, {"text", tag}, {"sender", sender}};
            auto answer = client.Post("/dev/notifications", headers, queued.dump(), "application/json");
            if (!answer || answer->status != 200) {
                std::cerr << "soak-worker " << me << ": queueing a push failed" << std::endl;
                return 2;
            }
            const auto content =
                fexo::tool::deliverPush(fexo::JSONSerialization::jsonObject(answer->body), std::chrono::seconds(10));
            if (!content.rewritten) {
                std::cerr << "soak-worker " << me << ": a push was not rewritten" << std::endl;
                return 2;
            }
            for (const auto& record : listAll(service)) {
                if (record.data && record.data->text == tag && record.id) {
                    own[*record.id] = record;
                    log.line("P " + *record.id + " " + encode(record));
                }
            }
        } else if (dice < 45 || own.size() < 3) {
            Response record(fexo::Date::now(), fexo::NotificationData(tag, sender), std::nullopt, std::nullopt,
                            me + "-" + tag.substr(me.size() + 1),
                            random() % 2 ? std::optional<bool>(false) : std::nullopt);
            if (!own.empty() && random() % 4 == 0) {
                record.id = pick(); // a rewrite of a record it already has
            }
            log.line("B W " + *record.id + " " + encode(record));
            service.write(record);
            log.line("E");
            own[*record.id] = record;
        } else if (dice < 65) {
            const std::string id = pick();
            Response marked = own[id];
            marked.isRead = true;
            log.line("B M " + id + " " + encode(marked));
            service.markNotificationAsRead(id);
            log.line("E");
            own[id] = marked;
        } else if (dice < 85 || own.size() > 40) {
            const std::string id = pick();
            log.line("B D " + id + " -");
            service.deleteNotification(id);
            log.line("E");
            own.erase(id);
        } else {
            // Everything listed decodes (a record that does not ends the process); this
            // worker's own records are there exactly as it last left them.
            std::map<std::string, Response> listed;
            for (const auto& record : listAll(service))
                if (ownsRecord(record)) listed[*record.id] = record;
            if (listed != own) {
                ++listMismatches;
                std::cerr << "soak-worker " << me << ": its own records differ from what it wrote" << std::endl;
            }
        }
    }
    return listMismatches == 0 ? 0 : 1;
}

// The states a record may be in after the logs are replayed: each a JSON text, or "" for
// absent.
struct Allowed {
    std::set<std::string> states{""};
};

int verify(const std::vector<std::string>& logs)
{
    std::map<std::string, Allowed> records;
    long written = 0, marked = 0, deleted = 0, pushed = 0, unconfirmed = 0;
    for (const auto& path : logs) {
        std::ifstream file(path);
        std::string line;
        std::optional<std::tuple<char, std::string, std::string>> pending;
        auto settle = [&](bool confirmed) {
            if (!pending) return;
            const auto& [op, id, json] = *pending;
            const std::string state = op == 'D' ? "" : json;
            if (confirmed) {
                records[id].states = {state};
                (op == 'W' ? written : op == 'M' ? marked : deleted)++;
            } else {
                records[id].states.insert(state);
                ++unconfirmed;
            }
            pending.reset();
        };
        std::string content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        std::size_t start = 0;
        while (start < content.size()) {
            const std::size_t end = content.find('\n', start);
            if (end == std::string::npos) break; // a line cut by a kill
            line = content.substr(start, end - start);
            start = end + 1;
            if (line == "E") {
                settle(true);
            } else if (line.starts_with("B ") && line.size() > 4) {
                settle(false); // the previous incarnation was killed inside its operation
                std::istringstream fields(line.substr(4));
                std::string id;
                fields >> id;
                std::string json;
                std::getline(fields >> std::ws, json);
                pending.emplace(line[2], id, json);
            } else if (line.starts_with("P ")) {
                settle(false);
                std::istringstream fields(line.substr(2));
                std::string id;
                fields >> id;
                std::string json;
                std::getline(fields >> std::ws, json);
                records[id].states = {json};
                ++pushed;
            }
        }
        settle(false);
    }

    fexo::FeXOService service;
    std::map<std::string, std::string> stored;
    for (const auto& record : listAll(service)) stored[record.id.value_or("")] = encode(record);
    long lost = 0, wrong = 0, resurrected = 0, present = 0;
    for (const auto& [id, allowed] : records) {
        const auto found = stored.find(id);
        const std::string actual = found == stored.end() ? "" : found->second;
        if (!actual.empty()) ++present;
        if (allowed.states.count(actual)) continue;
        if (actual.empty()) {
            ++lost;
            std::cerr << "lost: " << id << '\n';
        } else if (allowed.states.count("")) {
            ++resurrected;
            std::cerr << "present after its delete: " << id << " " << actual << '\n';
        } else {
            ++wrong;
            std::cerr << "wrong form: " << id << " " << actual << '\n';
        }
    }
    long unlogged = 0;
    for (const auto& [id, json] : stored)
        if (!records.count(id)) ++unlogged; // a push whose confirmation a kill cut off
    std::cout << "records written " << written << ", pushed " << pushed << ", marked " << marked << ", deleted "
              << deleted << ", unconfirmed " << unconfirmed << "; in the store " << stored.size() << " (logged "
              << present << ", unlogged " << unlogged << "); lost: " << lost << ", wrong form: " << wrong
              << ", present after delete: " << resurrected << std::endl;
    return lost + wrong + resurrected == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && words[0] == "verify") return verify({words.begin() + 1, words.end()});
    if (words.empty() || words[0] != "run") {
        std::cerr << "usage: soak-worker run --worker K --server URL --until EPOCH --log FILE\n"
                     "       soak-worker verify LOG...\n"
                     "The configuration and the store are found as the library finds them."
                  << std::endl;
        return 2;
    }
    Arguments arguments;
    for (std::size_t i = 1; i + 1 < words.size(); i += 2) {
        if (words[i] == "--worker")
            arguments.worker = std::atoi(words[i + 1].c_str());
        else if (words[i] == "--server")
            arguments.server = words[i + 1];
        else if (words[i] == "--until")
            arguments.until = std::atof(words[i + 1].c_str());
        else if (words[i] == "--log")
            arguments.log = words[i + 1];
    }
    const fexo::FeXOConfigurationCheck configuration = fexo::FeXOConfigurationCheck::loaded();
    arguments.clientId = configuration.clientId;
    arguments.clientSecret = configuration.clientSecret;
    return run(arguments);
}
