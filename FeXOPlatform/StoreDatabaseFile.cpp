#include <FeXOPlatform/StoreDatabaseFile.hpp>

#include <FeXOPlatform/StoreFileSystem.hpp>

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>

namespace fexo {

namespace {

constexpr int busyTimeoutMilliseconds = 5000;

bool execute(sqlite3* database, const char* sql)
{
    return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::string journalMode(sqlite3* database, const char* pragma)
{
    sqlite3_stmt* statement = nullptr;
    std::string mode;
    if (sqlite3_prepare_v2(database, pragma, -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
        if (const auto* text = sqlite3_column_text(statement, 0)) mode = reinterpret_cast<const char*>(text);
    }
    sqlite3_finalize(statement);
    return mode;
}

} // namespace

void StoreDatabaseCloser::operator()(sqlite3* database) const
{
    sqlite3_close_v2(database);
}

StoreDatabase openStoreDatabase(const std::filesystem::path& path)
{
    sqlite3* raw = nullptr;
    const int opened = sqlite3_open_v2(
        path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW, storeFileSystemName());
    StoreDatabase database(raw);
    if (opened != SQLITE_OK) return nullptr;
    // The busy timeout comes first: every later step may wait for a lock of another process.
    sqlite3_busy_timeout(database.get(), busyTimeoutMilliseconds);
    return database;
}

bool configureStoreDatabase(sqlite3* database)
{
    if (journalMode(database, "PRAGMA journal_mode") != "wal" &&
        journalMode(database, "PRAGMA journal_mode = WAL") != "wal") {
        return false;
    }
    // FULL: a commit that returned is on disk, not only in the page cache.
    return execute(database, "PRAGMA synchronous = FULL") &&
           execute(database, "CREATE TABLE IF NOT EXISTS defaults ("
                             "key TEXT PRIMARY KEY NOT NULL, kind INTEGER NOT NULL, value BLOB NOT NULL"
                             ") WITHOUT ROWID");
}

// SQLite gives its -wal and -shm files the mode of the database file.
bool publishStoreDatabase(const std::filesystem::path& path)
{
    struct stat status { };
    if (::lstat(path.c_str(), &status) == 0) return S_ISREG(status.st_mode);
    if (errno != ENOENT) return false;

    static std::atomic<unsigned> counter{0};
    std::filesystem::path draft = path;
    draft += ".new-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
    const int fd = ::open(draft.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) return false;
    const bool private_ = ::fchmod(fd, 0600) == 0; // the umask may have taken bits away
    ::close(fd);
    bool ready = false;
    if (private_) {
        // This draft connection checkpoints when it closes: no log of the draft stays behind.
        auto database = openStoreDatabase(draft);
        ready = database && configureStoreDatabase(database.get());
    }
    const bool published = ready && (::link(draft.c_str(), path.c_str()) == 0 || errno == EEXIST);
    ::unlink(draft.c_str());
    return published;
}

} // namespace fexo
