#include <FeXOPlatform/StoreConnection.hpp>

#include <FeXOPlatform/FatalError.hpp>

#include <sqlite3.h>

namespace fexo {

namespace {

// A lock that other processes hold past the busy timeout is tried for again: the timeout's waits
// are not fair, and a step that failed with SQLITE_BUSY left nothing behind.
constexpr int busyAttempts = 6;

constexpr std::array<const char*, static_cast<std::size_t>(StoreConnection::Statement::count)> statementTexts = {
    "SELECT kind, value FROM defaults WHERE key = ?1",
    "INSERT INTO defaults (key, kind, value) VALUES (?1, ?2, ?3) "
    "ON CONFLICT (key) DO UPDATE SET kind = excluded.kind, value = excluded.value",
    "DELETE FROM defaults WHERE key = ?1",
    "SELECT key, kind, value FROM defaults",
    "SELECT key FROM defaults WHERE key >= ?1 AND key < ?2 ORDER BY key",
    "SELECT key FROM defaults WHERE key >= ?1 ORDER BY key",
    "SELECT key, value FROM defaults WHERE key >= ?1 AND key < ?2 AND kind = ?3 ORDER BY key",
    "SELECT key, value FROM defaults WHERE key >= ?1 AND kind = ?3 ORDER BY key",
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
};

bool isBusy(int result)
{
    return (result & 0xFF) == SQLITE_BUSY;
}

} // namespace

StoreConnection::StoreConnection(sqlite3* database, std::filesystem::path path)
    : database_(database), path_(std::move(path)), open_(path_)
{
}

StoreConnection::~StoreConnection()
{
    for (auto* statement : statements_) sqlite3_finalize(statement);
    for (auto& [text, statement] : composed_) sqlite3_finalize(statement);
    if (logLimit_ > 0 && logFrames_ >= logLimit_) {
        sqlite3_busy_timeout(database_, 0);
        sqlite3_wal_checkpoint_v2(database_, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    }
    sqlite3_close_v2(database_);
}

void StoreConnection::limitLog(int pages)
{
    logLimit_ = pages;
    sqlite3_wal_hook(
        database_,
        [](void* connection, sqlite3* database, const char* schema, int frames) {
            auto& self = *static_cast<StoreConnection*>(connection);
            self.logFrames_ = frames;
            if (frames >= self.logLimit_) sqlite3_wal_checkpoint(database, schema);
            return SQLITE_OK; // the commit stands whatever the copy did
        },
        this);
}

StoreConnection::Use::~Use()
{
    if (statement_ == nullptr) return;
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

bool StoreConnection::Use::nextRow()
{
    for (int attempt = 1;; ++attempt) {
        const int result = sqlite3_step(statement_);
        if (result == SQLITE_ROW) {
            stepped_ = true;
            return true;
        }
        if (result == SQLITE_DONE) return false;
        // Starting over is only harmless before the first row was handed out.
        if (!isBusy(result) || stepped_ || attempt == busyAttempts) connection_.readFailed();
        sqlite3_reset(statement_);
    }
}

bool StoreConnection::Use::run()
{
    const auto changesBefore = sqlite3_total_changes64(connection_.database_);
    const bool ok = statement_ != nullptr && connection_.stepToEnd(statement_);
    if (!ok) {
        connection_.noteFailure();
        if (connection_.transactionDepth_ > 0) connection_.transactionFailed_ = true;
    } else if (connection_.transactionDepth_ == 0 && sqlite3_total_changes64(connection_.database_) != changesBefore) {
        connection_.committed();
    }
    return ok;
}

sqlite3_stmt* StoreConnection::prepared(Statement which)
{
    auto& slot = statements_[static_cast<std::size_t>(which)];
    if (slot == nullptr) {
        sqlite3_prepare_v3(database_, statementTexts[static_cast<std::size_t>(which)], -1, SQLITE_PREPARE_PERSISTENT,
                           &slot, nullptr);
    }
    return slot;
}

sqlite3_stmt* StoreConnection::prepared(const std::string& sql)
{
    auto [slot, added] = composed_.try_emplace(sql, nullptr);
    if (slot->second == nullptr) {
        sqlite3_prepare_v3(database_, sql.c_str(), static_cast<int>(sql.size() + 1), SQLITE_PREPARE_PERSISTENT,
                           &slot->second, nullptr);
    }
    return slot->second;
}

StoreConnection::Use StoreConnection::use(const std::string& sql)
{
    return Use(*this, prepared(sql));
}

StoreConnection::Use StoreConnection::read(const std::string& sql)
{
    sqlite3_stmt* statement = prepared(sql);
    if (statement == nullptr) readFailed();
    return Use(*this, statement);
}

void StoreConnection::committed()
{
    if (commitObserver_) commitObserver_();
}

StoreConnection::Use StoreConnection::use(Statement which)
{
    return Use(*this, prepared(which));
}

StoreConnection::Use StoreConnection::read(Statement which)
{
    sqlite3_stmt* statement = prepared(which);
    if (statement == nullptr) readFailed();
    return Use(*this, statement);
}

void StoreConnection::readFailed() const
{
    fatalError("The app group store \"" + path_.string() + "\" could not be read: " + sqlite3_errmsg(database_));
}

void StoreConnection::noteFailure()
{
    lastFailure_ = sqlite3_errmsg(database_);
}

bool StoreConnection::runStatement(Statement which)
{
    auto statement = use(which);
    const bool ok = statement && stepToEnd(statement.get());
    if (!ok) noteFailure();
    return ok;
}

bool StoreConnection::stepToEnd(sqlite3_stmt* statement)
{
    for (int attempt = 1;; ++attempt) {
        const int result = sqlite3_step(statement);
        if (result == SQLITE_DONE) return true;
        if (!isBusy(result) || attempt == busyAttempts || transactionDepth_ > 0) return false;
        sqlite3_reset(statement);
    }
}

bool StoreConnection::performExclusively(const std::function<void()>& body)
{
    if (transactionDepth_ > 0) {
        ++transactionDepth_;
        struct Leave {
            int& depth;
            ~Leave() { --depth; }
        } leave{transactionDepth_};
        body();
        return !transactionFailed_;
    }

    if (!runStatement(Statement::begin)) return false;
    const auto changesBefore = sqlite3_total_changes64(database_);
    transactionDepth_ = 1;
    transactionFailed_ = false;
    try {
        body();
    } catch (...) {
        transactionDepth_ = 0;
        runStatement(Statement::rollback);
        throw;
    }
    transactionDepth_ = 0;
    if (!transactionFailed_ && runStatement(Statement::commit)) {
        if (sqlite3_total_changes64(database_) != changesBefore) committed();
        return true;
    }
    // Also covers a failed COMMIT, after which the transaction may still be open.
    if (!sqlite3_get_autocommit(database_)) runStatement(Statement::rollback);
    return false;
}

} // namespace fexo
