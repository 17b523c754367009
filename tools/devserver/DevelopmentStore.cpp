#include <devserver/DevelopmentStore.hpp>

#include <sqlite3.h>

#include <stdexcept>
#include <system_error>

namespace fexo::tool {

namespace {

[[noreturn]] void throwError(sqlite3* db, const std::string& what)
{
    throw std::runtime_error(what + ": " + (db != nullptr ? sqlite3_errmsg(db) : "out of memory"));
}

// One prepared statement, finalized in one place. Text is bound with SQLITE_TRANSIENT, so
// the arguments need not outlive the call.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) : db_(db)
    {
        if (sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr) != SQLITE_OK) {
            throwError(db, std::string("cannot prepare \"") + sql + "\"");
        }
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, const std::string& text)
    {
        check(sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT));
        return *this;
    }
    Statement& bind(int index, double value)
    {
        check(sqlite3_bind_double(statement_, index, value));
        return *this;
    }
    Statement& bind(int index, sqlite3_int64 value)
    {
        check(sqlite3_bind_int64(statement_, index, value));
        return *this;
    }

    // True while a row is available.
    bool step()
    {
        const int status = sqlite3_step(statement_);
        if (status == SQLITE_ROW) return true;
        if (status == SQLITE_DONE) return false;
        throwError(db_, "cannot run a statement");
    }

    std::string text(int column) const
    {
        const auto* bytes = sqlite3_column_text(statement_, column);
        return bytes == nullptr ? std::string()
                                : std::string(reinterpret_cast<const char*>(bytes),
                                              static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
    }
    double real(int column) const { return sqlite3_column_double(statement_, column); }
    sqlite3_int64 integer(int column) const { return sqlite3_column_int64(statement_, column); }

private:
    void check(int status)
    {
        if (status != SQLITE_OK) throwError(db_, "cannot bind a value");
    }

    sqlite3* db_;
    sqlite3_stmt* statement_ = nullptr;
};

// Rolls back unless committed, so an exception never leaves a transaction open.
class Transaction {
public:
    explicit Transaction(sqlite3* db) : db_(db)
    {
        if (sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
            throwError(db_, "cannot begin a transaction");
        }
    }
    ~Transaction()
    {
        if (!committed_) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit()
    {
        if (sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
            throwError(db_, "cannot commit");
        }
        committed_ = true;
    }

private:
    sqlite3* db_;
    bool committed_ = false;
};

} // namespace

void DevelopmentStore::Closer::operator()(sqlite3* db) const
{
    sqlite3_close_v2(db);
}

DevelopmentStore::DevelopmentStore(const std::optional<std::filesystem::path>& directory)
{
    if (directory) {
        std::error_code error;
        std::filesystem::create_directories(*directory, error);
        if (error) {
            throw std::runtime_error("cannot create " + directory->string() + ": " + error.message());
        }
        location_ = (*directory / "devserver.sqlite").string();
    } else {
        location_ = ":memory:";
    }

    sqlite3* raw = nullptr;
    const int status = sqlite3_open_v2(location_.c_str(), &raw,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    db_.reset(raw);
    if (status != SQLITE_OK) throwError(raw, "cannot open " + location_);

    // The busy timeout must come first: the journal-mode switch below already needs the lock.
    sqlite3_busy_timeout(db_.get(), 5000);
    if (directory) execute("PRAGMA journal_mode=WAL");
    execute("CREATE TABLE IF NOT EXISTS registrations ("
            " deviceId TEXT PRIMARY KEY NOT NULL,"
            " registrationId TEXT NOT NULL,"
            " body TEXT NOT NULL,"
            " sequence INTEGER NOT NULL)");
    execute("CREATE TABLE IF NOT EXISTS notifications ("
            " sequence INTEGER PRIMARY KEY AUTOINCREMENT,"
            " id TEXT NOT NULL,"
            " recipientId TEXT NOT NULL,"
            " text TEXT NOT NULL,"
            " sender TEXT NOT NULL,"
            " createdAt REAL NOT NULL,"
            " delivered INTEGER NOT NULL DEFAULT 0)");
    execute("CREATE INDEX IF NOT EXISTS queued ON notifications (recipientId, delivered, sequence)");
}

DevelopmentStore::~DevelopmentStore() = default;

void DevelopmentStore::execute(const char* sql)
{
    if (sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        throwError(db_.get(), std::string("cannot run \"") + sql + "\" on " + location_);
    }
}

void DevelopmentStore::saveRegistration(const std::string& deviceId, const std::string& registrationId,
                                        const std::string& bodyJson)
{
    const std::lock_guard lock(mutex_);
    Transaction transaction(db_.get());
    Statement(db_.get(), "INSERT OR REPLACE INTO registrations (deviceId, registrationId, body, sequence)"
                         " VALUES (?1, ?2, ?3, (SELECT COALESCE(MAX(sequence), 0) + 1 FROM registrations))")
        .bind(1, deviceId)
        .bind(2, registrationId)
        .bind(3, bodyJson)
        .step();
    transaction.commit();
}

std::vector<std::string> DevelopmentStore::registrations() const
{
    const std::lock_guard lock(mutex_);
    Statement statement(db_.get(), "SELECT body FROM registrations ORDER BY sequence");
    std::vector<std::string> bodies;
    while (statement.step()) bodies.push_back(statement.text(0));
    return bodies;
}

std::optional<std::string> DevelopmentStore::registrationIdOf(const std::string& deviceId) const
{
    const std::lock_guard lock(mutex_);
    Statement statement(db_.get(), "SELECT registrationId FROM registrations WHERE deviceId = ?1");
    statement.bind(1, deviceId);
    if (!statement.step()) return std::nullopt;
    return statement.text(0);
}

void DevelopmentStore::enqueue(const Notification& notification)
{
    const std::lock_guard lock(mutex_);
    Statement(db_.get(), "INSERT INTO notifications (id, recipientId, text, sender, createdAt)"
                         " VALUES (?1, ?2, ?3, ?4, ?5)")
        .bind(1, notification.id)
        .bind(2, notification.recipientId)
        .bind(3, notification.text)
        .bind(4, notification.sender)
        .bind(5, notification.createdAt)
        .step();
}

std::optional<DevelopmentStore::Notification> DevelopmentStore::takeOldest(const std::string& recipientId)
{
    const std::lock_guard lock(mutex_);
    Transaction transaction(db_.get());
    Notification notification;
    sqlite3_int64 sequence = 0;
    {
        Statement select(db_.get(), "SELECT sequence, id, text, sender, createdAt FROM notifications"
                                    " WHERE recipientId = ?1 AND delivered = 0 ORDER BY sequence LIMIT 1");
        select.bind(1, recipientId);
        if (!select.step()) return std::nullopt;
        sequence = select.integer(0);
        notification = {select.text(1), recipientId, select.text(2), select.text(3), select.real(4)};
    }
    Statement(db_.get(), "UPDATE notifications SET delivered = 1 WHERE sequence = ?1").bind(1, sequence).step();
    transaction.commit();
    return notification;
}

} // namespace fexo::tool
