#include <FeXOPlatform/StoreDatabaseFile.hpp>

#include <FeXOPlatform/StoreFileSystem.hpp>

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
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

std::string storeFailure(sqlite3* database, const std::filesystem::path& path)
{
    const int system = database != nullptr ? sqlite3_system_errno(database) : 0;
    if (system != 0) return path.string() + ": " + std::strerror(system);
    return path.string() + ": " + (database != nullptr ? sqlite3_errmsg(database) : "out of memory");
}

StoreDatabase openStoreDatabase(const std::filesystem::path& path, std::string* whyNot, const char* fileSystem)
{
    sqlite3* raw = nullptr;
    const int opened =
        sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW,
                        fileSystem != nullptr ? fileSystem : storeFileSystemName());
    StoreDatabase database(raw);
    if (opened != SQLITE_OK) {
        if (whyNot != nullptr) *whyNot = storeFailure(raw, path);
        return nullptr;
    }
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
bool publishStoreDatabase(const std::filesystem::path& path, std::string& whyNot)
{
    struct stat status { };
    if (::lstat(path.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode))
            whyNot = path.string() + ": is not a regular file (a symbolic link or another file stands there)";
        return S_ISREG(status.st_mode);
    }
    if (errno != ENOENT) {
        whyNot = path.string() + ": " + std::strerror(errno);
        return false;
    }

    static std::atomic<unsigned> counter{0};
    std::filesystem::path draft = path;
    draft += ".new-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
    const int fd = ::open(draft.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        whyNot = path.string() + ": " + std::strerror(errno);
        return false;
    }
    const bool private_ = ::fchmod(fd, 0600) == 0; // the umask may have taken bits away
    if (!private_) whyNot = path.string() + ": " + std::strerror(errno);
    ::close(fd);
    bool ready = false;
    if (private_) {
        // This draft connection checkpoints when it closes: no log of the draft stays behind.
        auto database = openStoreDatabase(draft, &whyNot);
        ready = database && configureStoreDatabase(database.get());
        if (database && !ready) whyNot = storeFailure(database.get(), path);
    }
    const bool published = ready && (::link(draft.c_str(), path.c_str()) == 0 || errno == EEXIST);
    if (ready && !published) whyNot = path.string() + ": " + std::strerror(errno);
    ::unlink(draft.c_str());
    return published;
}

std::optional<std::string> whyStoreCannotBeRead(const std::filesystem::path& path)
{
    sqlite3* raw = nullptr;
    const int opened =
        sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW, nullptr);
    StoreDatabase database(raw);
    if (opened != SQLITE_OK) return storeFailure(raw, path);
    sqlite3_busy_timeout(database.get(), busyTimeoutMilliseconds);
    if (sqlite3_exec(database.get(), "SELECT count(*) FROM sqlite_schema", nullptr, nullptr, nullptr) != SQLITE_OK)
        return storeFailure(database.get(), path);
    return std::nullopt;
}

} // namespace fexo
