#include <agent/QueueDatabase.hpp>

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>

namespace fexo::agent {

namespace {

constexpr int schemaVersion = 1;
constexpr int maximumShown = 1000;

// One prepared statement; finalized when it goes.
class Statement {
public:
    Statement(sqlite3* database, const char* sql)
    {
        if (database == nullptr || sqlite3_prepare_v2(database, sql, -1, &statement_, nullptr) != SQLITE_OK)
            statement_ = nullptr;
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, std::int64_t value)
    {
        if (statement_) sqlite3_bind_int64(statement_, index, value);
        return *this;
    }
    Statement& bind(int index, const std::string& value)
    {
        if (statement_)
            sqlite3_bind_text(statement_, index, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bind(int index, const std::optional<std::string>& value)
    {
        if (!value) {
            if (statement_) sqlite3_bind_null(statement_, index);
            return *this;
        }
        return bind(index, *value);
    }
    // SQLITE_ROW, SQLITE_DONE or an error code.
    int step() { return statement_ ? sqlite3_step(statement_) : SQLITE_ERROR; }
    bool run() { return step() == SQLITE_DONE; }

    std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
    bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
    std::string text(int column) const
    {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
        return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                     : std::string();
    }
    std::optional<std::string> optionalText(int column) const
    {
        return isNull(column) ? std::nullopt : std::optional(text(column));
    }

private:
    sqlite3_stmt* statement_ = nullptr;
};

// What a pragma answers: its first row's text, or the failure's message with its code.
struct PragmaAnswer {
    bool answered = false;
    int code = SQLITE_OK; // the primary result code of a failure
    std::string text;
};

PragmaAnswer pragma(sqlite3* database, const char* sql)
{
    Statement statement(database, sql);
    const int stepped = statement.step();
    if (stepped == SQLITE_ROW) return {true, SQLITE_OK, statement.text(0)};
    return {false, sqlite3_errcode(database) & 0xff, sqlite3_errmsg(database)};
}

std::string timestamp()
{
    char text[32];
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &utc);
    return text;
}

// Creates the file 0600 (SQLite gives its log the same mode), or tightens an existing one.
bool createPrivately(const std::string& path, std::string& reason)
{
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file < 0) {
        reason = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    struct stat status { };
    if (::fstat(file, &status) == 0 && (status.st_mode & 077) != 0) ::fchmod(file, 0600);
    ::close(file);
    return true;
}

} // namespace

std::unique_ptr<QueueDatabase> QueueDatabase::open(const std::filesystem::path& folder)
{
    std::unique_ptr<QueueDatabase> queue(new QueueDatabase());
    std::string reason = "no state folder";
    if (!folder.empty()) {
        queue->path_ = (folder / "queue.sqlite").string();
        for (int attempt = 0; attempt < 2; ++attempt) {
            bool damaged = false;
            if (queue->openFile(reason, damaged)) {
                queue->durable_ = true;
                return queue;
            }
            if (!damaged || attempt == 1) break;
            // Moved aside, never deleted: what it held may still be read by hand.
            const std::string aside = queue->path_ + ".damaged-" + timestamp();
            std::error_code ignored;
            std::filesystem::rename(queue->path_ + "-wal", aside + "-wal", ignored);
            std::filesystem::remove(queue->path_ + "-shm", ignored);
            if (::rename(queue->path_.c_str(), aside.c_str()) != 0) {
                reason = "cannot move the damaged " + queue->path_ + " aside: " + std::strerror(errno);
                break;
            }
            std::cerr << "fexo-agent: the queue " << queue->path_ << " is damaged (" << reason << "); moved aside to "
                      << aside << ", the pushes it held are not shown" << std::endl;
        }
    }
    std::cerr << "fexo-agent: pushes are kept in memory only, not across a restart (" << reason << ")" << std::endl;
    queue->path_.clear();
    sqlite3_open_v2(":memory:", &queue->database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    std::string ignored;
    bool alsoIgnored = false;
    queue->prepareSchema(ignored, alsoIgnored);
    return queue;
}

bool QueueDatabase::openFile(std::string& reason, bool& damaged)
{
    damaged = false;
    if (!createPrivately(path_, reason)) return false;
    if (sqlite3_open_v2(path_.c_str(), &database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(database_, 5000);
        // Damaged: what the check finds, what SQLite calls corrupt or not a database, or a schema
        // that is not ours. Any other failure (no space, no permission, a read-only file system)
        // leaves the file alone.
        const auto check = pragma(database_, "PRAGMA quick_check");
        if (check.answered && check.text == "ok") {
            if (prepareSchema(reason, damaged)) return true;
        } else {
            reason = check.text;
            damaged = check.answered || check.code == SQLITE_CORRUPT || check.code == SQLITE_NOTADB;
        }
    } else {
        reason = database_ ? sqlite3_errmsg(database_) : "out of memory";
    }
    sqlite3_close(database_);
    database_ = nullptr;
    return false;
}

QueueDatabase::~QueueDatabase()
{
    sqlite3_close(database_);
}

bool QueueDatabase::prepareSchema(std::string& reason, bool& damaged)
{
    const auto version = pragma(database_, "PRAGMA user_version");
    if (!version.answered || (version.text != "0" && version.text != std::to_string(schemaVersion))) {
        damaged = version.answered || version.code == SQLITE_CORRUPT || version.code == SQLITE_NOTADB;
        reason = version.answered ? "its schema " + version.text + " is not this agent's" : version.text;
        return false;
    }
    const bool created =
        execute("PRAGMA journal_mode=WAL") && execute("PRAGMA synchronous=NORMAL") &&
        execute("CREATE TABLE IF NOT EXISTS pushes (sequence INTEGER PRIMARY KEY AUTOINCREMENT, request_id TEXT "
                "NOT NULL, user_info TEXT NOT NULL, caller TEXT NOT NULL, bus_id TEXT NOT NULL, state INTEGER NOT "
                "NULL, process_group INTEGER, leader_start INTEGER, boot_id TEXT, title TEXT, body TEXT, rewritten "
                "INTEGER, record_id TEXT, signalled INTEGER NOT NULL DEFAULT 0)") &&
        execute("CREATE TABLE IF NOT EXISTS shown (position INTEGER PRIMARY KEY AUTOINCREMENT, owner TEXT NOT NULL, "
                "notification INTEGER NOT NULL, record_id TEXT, request_id TEXT NOT NULL, UNIQUE (owner, "
                "notification))") &&
        execute("PRAGMA user_version=1");
    if (!created) reason = sqlite3_errmsg(database_);
    return created;
}

bool QueueDatabase::execute(const char* sql)
{
    return sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

void QueueDatabase::logFailure(const char* what)
{
    if (failureLogged_) return;
    failureLogged_ = true;
    std::cerr << "fexo-agent: cannot " << what << " in the queue " << path_ << ": " << sqlite3_errmsg(database_)
              << " (further failures are not logged)" << std::endl;
}

bool QueueDatabase::accept(QueuedPush& push)
{
    std::lock_guard lock(mutex_);
    // The one flushed commit: what Push's answer promises.
    execute("PRAGMA synchronous=FULL");
    Statement insert(database_, "INSERT INTO pushes (request_id, user_info, caller, bus_id, state) "
                                "VALUES (?1, ?2, ?3, ?4, 0)");
    const bool inserted =
        insert.bind(1, push.requestId).bind(2, push.userInfoJSON).bind(3, push.caller).bind(4, push.busId).run();
    execute("PRAGMA synchronous=NORMAL");
    if (!inserted) {
        logFailure("keep a push");
        return false;
    }
    push.sequence = sqlite3_last_insert_rowid(database_);
    push.state = QueuedPush::State::accepted;
    return true;
}

bool QueueDatabase::markRunning(std::int64_t sequence)
{
    std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE pushes SET state = 1 WHERE sequence = ?1");
    if (update.bind(1, sequence).run()) return true;
    logFailure("record a running extension");
    return false;
}

bool QueueDatabase::recordProcessGroup(std::int64_t sequence, const ProcessGroupRecord& group)
{
    std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE pushes SET process_group = ?2, leader_start = ?3, boot_id = ?4 "
                                "WHERE sequence = ?1");
    if (update.bind(1, sequence)
            .bind(2, static_cast<std::int64_t>(group.group))
            .bind(3, static_cast<std::int64_t>(group.leaderStart))
            .bind(4, group.bootId)
            .run())
        return true;
    logFailure("record a running extension");
    return false;
}

bool QueueDatabase::markContentKnown(std::int64_t sequence, const tool::DeliveredContent& content)
{
    std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE pushes SET state = 2, process_group = NULL, title = ?2, body = ?3, "
                                "rewritten = ?4, record_id = ?5 WHERE sequence = ?1");
    if (update.bind(1, sequence)
            .bind(2, content.title)
            .bind(3, content.body)
            .bind(4, std::int64_t{content.rewritten})
            .bind(5, content.id)
            .run())
        return true;
    logFailure("record a push's content");
    return false;
}

bool QueueDatabase::markSignalled(std::int64_t sequence)
{
    std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE pushes SET signalled = 1 WHERE sequence = ?1");
    if (update.bind(1, sequence).run()) return true;
    logFailure("record a signal");
    return false;
}

bool QueueDatabase::markShown(std::int64_t sequence, const ShownNotification& shown)
{
    std::lock_guard lock(mutex_);
    if (!execute("BEGIN IMMEDIATE")) {
        logFailure("record a shown push");
        return false;
    }
    Statement remove(database_, "DELETE FROM pushes WHERE sequence = ?1");
    Statement insert(database_, "INSERT OR REPLACE INTO shown (owner, notification, record_id, request_id) "
                                "VALUES (?1, ?2, ?3, ?4)");
    Statement trim(database_, "DELETE FROM shown WHERE position NOT IN "
                              "(SELECT position FROM shown ORDER BY position DESC LIMIT ?1)");
    const bool done = remove.bind(1, sequence).run() &&
                      insert.bind(1, shown.owner)
                          .bind(2, static_cast<std::int64_t>(shown.notification))
                          .bind(3, shown.recordId)
                          .bind(4, shown.requestId)
                          .run() &&
                      trim.bind(1, std::int64_t{maximumShown}).run() && execute("COMMIT");
    if (!done) {
        logFailure("record a shown push");
        execute("ROLLBACK");
    }
    return done;
}

bool QueueDatabase::remove(std::int64_t sequence)
{
    std::lock_guard lock(mutex_);
    Statement remove(database_, "DELETE FROM pushes WHERE sequence = ?1");
    if (remove.bind(1, sequence).run()) return true;
    logFailure("remove a push");
    return false;
}

std::vector<QueuedPush> QueueDatabase::pending()
{
    std::lock_guard lock(mutex_);
    std::vector<QueuedPush> pushes;
    Statement select(database_, "SELECT sequence, request_id, user_info, caller, bus_id, state, process_group, "
                                "leader_start, boot_id, title, body, rewritten, record_id, signalled FROM pushes "
                                "ORDER BY sequence");
    int stepped;
    while ((stepped = select.step()) == SQLITE_ROW) {
        QueuedPush push;
        push.sequence = select.integer(0);
        push.requestId = select.text(1);
        push.userInfoJSON = select.text(2);
        push.caller = select.text(3);
        push.busId = select.text(4);
        const auto state = select.integer(5);
        push.state = state == 2   ? QueuedPush::State::contentKnown
                     : state == 1 ? QueuedPush::State::running
                                  : QueuedPush::State::accepted;
        if (!select.isNull(6))
            push.group = ProcessGroupRecord{static_cast<pid_t>(select.integer(6)),
                                            static_cast<std::uint64_t>(select.integer(7)), select.text(8)};
        push.content = {select.text(9), select.text(10), select.integer(11) != 0, select.optionalText(12)};
        push.signalled = select.integer(13) != 0;
        pushes.push_back(std::move(push));
    }
    if (stepped != SQLITE_DONE) logFailure("read the pushes");
    return pushes;
}

std::optional<ShownNotification> QueueDatabase::shown(const std::string& owner, std::uint32_t notification)
{
    std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT record_id, request_id FROM shown WHERE owner = ?1 AND notification = ?2");
    if (select.bind(1, owner).bind(2, static_cast<std::int64_t>(notification)).step() != SQLITE_ROW)
        return std::nullopt;
    return ShownNotification{notification, owner, select.optionalText(0), select.text(1)};
}

std::vector<ShownNotification> QueueDatabase::allShown()
{
    std::lock_guard lock(mutex_);
    std::vector<ShownNotification> all;
    Statement select(database_, "SELECT notification, owner, record_id, request_id FROM shown ORDER BY position");
    while (select.step() == SQLITE_ROW)
        all.push_back(
            {static_cast<std::uint32_t>(select.integer(0)), select.text(1), select.optionalText(2), select.text(3)});
    return all;
}

void QueueDatabase::forgetShown(const std::string& owner, std::uint32_t notification)
{
    std::lock_guard lock(mutex_);
    Statement remove(database_, "DELETE FROM shown WHERE owner = ?1 AND notification = ?2");
    if (!remove.bind(1, owner).bind(2, static_cast<std::int64_t>(notification)).run())
        logFailure("forget a notification");
}

void QueueDatabase::forgetShownExcept(const std::string& owner)
{
    std::lock_guard lock(mutex_);
    Statement remove(database_, "DELETE FROM shown WHERE owner != ?1");
    if (!remove.bind(1, owner).run()) logFailure("forget notifications");
}

} // namespace fexo::agent
