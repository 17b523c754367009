#pragma once

#include <FeXOPlatform/OpenStores.hpp>

#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace fexo {

// One open store: its prepared statements and its write transactions. Not thread-safe; the
// owner serialises every call (UserDefaults holds a mutex around each).
//
// Reads tell absence from failure: a read that SQLite cannot complete, because the file is
// damaged or other processes hold the lock past every wait, ends the process with a message that
// names the file, so that a damaged store is never taken for a shorter one. Writes report
// failure as false and keep SQLite's reason in lastFailure().
class StoreConnection {
public:
    // The statements each connection prepares once, on first use, and keeps.
    enum class Statement : std::size_t {
        select,
        upsert,
        remove,
        selectAll,
        keysInRange,
        keysFrom,
        dataInRange,
        dataFrom,
        begin,
        commit,
        rollback,
        count
    };

    // Takes ownership of `database`, opened on `path`.
    StoreConnection(sqlite3* database, std::filesystem::path path);
    ~StoreConnection();
    StoreConnection(const StoreConnection&) = delete;
    StoreConnection& operator=(const StoreConnection&) = delete;

    // A cached statement, reset and unbound when the guard goes away.
    class Use {
    public:
        Use(StoreConnection& connection, sqlite3_stmt* statement) : connection_(connection), statement_(statement) { }
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        sqlite3_stmt* get() const { return statement_; }
        explicit operator bool() const { return statement_ != nullptr; }

        // Steps a read: true with a row, false at its end. Waits out busy locks as writes do;
        // any other outcome ends the process (see the class comment).
        bool nextRow();
        // Runs a write to its end; false when it failed, which inside a transaction dooms it.
        bool run();

    private:
        StoreConnection& connection_;
        sqlite3_stmt* statement_;
        bool stepped_ = false;
    };

    // The statement for a write; an empty guard when it cannot be prepared (run() then fails).
    Use use(Statement which);
    // The statement for a read; a statement that cannot be prepared ends the process.
    Use read(Statement which);

    // Statements given by their text, for queries that other types of this layer compose (record
    // indexes); prepared on first use and kept like the fixed ones, with the same failure rules.
    Use use(const std::string& sql);
    Use read(const std::string& sql);

    // Runs `body` as one write transaction; see UserDefaults::performExclusively().
    bool performExclusively(const std::function<void()>& body);

    // Called on the committing thread after every commit that changed at least one row and
    // returned (with synchronous FULL: is durable), whether a single write or a transaction.
    void setCommitObserver(std::function<void()> observer) { commitObserver_ = std::move(observer); }

    // Once a commit leaves at least `pages` pages in the log, they are copied into the database
    // (SQLite's own automatic checkpoint, which a long-lived connection follows by writing the
    // log again from its start). A connection that goes away leaves its log behind, and the next
    // one to open the store alone rebuilds the log's index from all of it, no longer knowing
    // what was copied, so it copies all of it again and the log never starts over. So when this
    // connection closes with the log at least that long, it empties the log, without waiting for
    // other processes (one that is reading keeps its log for a later close).
    void limitLog(int pages);

    // SQLite's words for the latest write that failed.
    const std::string& lastFailure() const { return lastFailure_; }
    sqlite3* database() const { return database_; }

private:
    sqlite3_stmt* prepared(Statement which);
    bool runStatement(Statement which);
    // Steps a write to SQLITE_DONE, trying again while other processes keep the lock.
    bool stepToEnd(sqlite3_stmt* statement);
    sqlite3_stmt* prepared(const std::string& sql);
    void committed();
    [[noreturn]] void readFailed() const;
    void noteFailure();

    sqlite3* database_;
    std::filesystem::path path_;
    OpenStores::Mark open_; // while the connection lives
    std::array<sqlite3_stmt*, static_cast<std::size_t>(Statement::count)> statements_{};
    // Depth of performExclusively() calls on the owning thread; writes inside one join it.
    int transactionDepth_ = 0;
    bool transactionFailed_ = false;
    std::string lastFailure_;
    std::unordered_map<std::string, sqlite3_stmt*> composed_;
    std::function<void()> commitObserver_;
    int logLimit_ = 0;
    int logFrames_ = 0; // in the log after this connection's latest commit
};

} // namespace fexo
