#pragma once

#include <agent/ProcessGroupRecord.hpp>
#include <common/DeliveredContent.hpp>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

namespace fexo::agent {

// One accepted push as the queue keeps it.
struct QueuedPush {
    enum class State {
        accepted = 0,
        running = 1,
        contentKnown = 2
    };

    std::int64_t sequence = 0; // arrival order
    std::string requestId;
    std::string userInfoJSON;
    std::string caller; // the unique bus name of Push's caller
    std::string busId;  // the id of the bus it called on (unique names are unique per bus only)
    State state = State::accepted;
    std::optional<ProcessGroupRecord> group; // while running
    tool::DeliveredContent content;          // once the content is known
    bool signalled = false;                  // Delivered was emitted

    // Not kept: when this agent took it (from Push, or from the queue at start), for the log.
    std::chrono::steady_clock::time_point taken{};
};

// A notification the desktop shows for a push: its id at the daemon whose unique bus name is
// `owner` (daemons number from 1 again when they restart), and the stored record it shows.
struct ShownNotification {
    std::uint32_t notification = 0;
    std::string owner;
    std::optional<std::string> recordId;
    std::string requestId;
};

// The agent's SQLite database: the pushes accepted and not yet shown, and the notifications
// shown, at most 1,000, the oldest forgotten first.
//
// Durability: accept() commits with a flush before it returns, so an accepted push survives any
// stop of the agent or the machine. Every other change is committed without a flush of its own:
// a power cut can undo the last of them, never an acceptance.
//
// Failures: a change that cannot be committed returns false and is logged once per kind of
// failure; nothing here ends the process. Thread rules: every member may be called from any
// thread (one connection, behind a mutex).
class QueueDatabase {
public:
    // Opens (or makes, 0600) "queue.sqlite" in `folder`. A file that is damaged, or not this
    // agent's, is moved aside (renamed with ".damaged-<time>") with one line on standard error,
    // and a new queue begins. When no file can be used at all (an empty `folder` included), the
    // queue lives in memory and the reason is logged; never null.
    static std::unique_ptr<QueueDatabase> open(const std::filesystem::path& folder);
    ~QueueDatabase();
    QueueDatabase(const QueueDatabase&) = delete;
    QueueDatabase& operator=(const QueueDatabase&) = delete;

    // True when the queue is a file (it survives the agent).
    bool durable() const { return durable_; }
    const std::string& path() const { return path_; }

    // Commits `push` (state accepted) with a flush and sets its sequence.
    bool accept(QueuedPush& push);
    bool markRunning(std::int64_t sequence);
    bool recordProcessGroup(std::int64_t sequence, const ProcessGroupRecord& group);
    bool markContentKnown(std::int64_t sequence, const tool::DeliveredContent& content);
    bool markSignalled(std::int64_t sequence);
    // The push leaves the queue, and `shown` is remembered, in one transaction.
    bool markShown(std::int64_t sequence, const ShownNotification& shown);
    // The push leaves the queue without a notification (the desktop refused it).
    bool remove(std::int64_t sequence);
    // Every push in the queue, in arrival order.
    std::vector<QueuedPush> pending();

    std::optional<ShownNotification> shown(const std::string& owner, std::uint32_t notification);
    std::vector<ShownNotification> allShown();
    void forgetShown(const std::string& owner, std::uint32_t notification);
    // Forgets every notification not shown by `owner` (all of them for an empty owner).
    void forgetShownExcept(const std::string& owner);

private:
    QueueDatabase() = default;
    bool openFile(std::string& reason, bool& damaged);
    bool prepareSchema(std::string& reason, bool& damaged);
    bool execute(const char* sql);
    void logFailure(const char* what);

    std::mutex mutex_;
    sqlite3* database_ = nullptr;
    bool durable_ = false;
    std::string path_;
    bool failureLogged_ = false;
};

} // namespace fexo::agent
