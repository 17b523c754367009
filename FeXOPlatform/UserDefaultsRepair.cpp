#include <FeXOPlatform/UserDefaultsRepair.hpp>

#include <FeXOPlatform/AppGroupFolders.hpp>
#include <FeXOPlatform/OpenStores.hpp>
#include <FeXOPlatform/PreparedStatement.hpp>
#include <FeXOPlatform/ReadTracingFileSystem.hpp>
#include <FeXOPlatform/StoreDatabaseFile.hpp>
#include <FeXOPlatform/StoreKeySalvage.hpp>

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <set>
#include <utility>

namespace fexo {

namespace {

constexpr int lockAttempts = 6;

std::optional<std::filesystem::path> databasePathOf(std::string_view suiteName)
{
    auto folder = existingSuiteFolder(suiteName);
    if (!folder) return std::nullopt;
    return *folder / "defaults.sqlite";
}

bool isRegularFile(const std::filesystem::path& path)
{
    struct stat status { };
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string text(sqlite3_stmt* statement, int column)
{
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
    return bytes == nullptr ? std::string()
                            : std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
}

// Runs `statement` for `key`, bound as its first parameter; true when it gives a row.
bool readRow(sqlite3_stmt* statement, const StoreKeySalvage::Key& key)
{
    sqlite3_reset(statement);
    if (key.type == SQLITE_TEXT) {
        sqlite3_bind_text64(statement, 1, key.bytes.data(), key.bytes.size(), SQLITE_STATIC, SQLITE_UTF8);
    } else {
        sqlite3_bind_blob64(statement, 1, key.bytes.data(), key.bytes.size(), SQLITE_STATIC);
    }
    return sqlite3_step(statement) == SQLITE_ROW;
}

// Copies every row that can still be read from `damaged` into `fresh`, inside the caller's write
// transaction on `fresh`: each key the salvage reaches, read on its own, so that an unreadable
// value costs only its key. Its own seek is the first try; the seek from just above it the second,
// for a key that sits next to a damaged page on its left, where its own seek descends. Kind and
// value are copied as SQLite holds them, storage class included.
bool copyReadableRows(sqlite3* damaged, sqlite3* fresh, UserDefaultsRepair::Outcome& outcome)
{
    auto byKey = prepareStatement(damaged, "SELECT key, kind, value FROM defaults NOT INDEXED WHERE key = ?1");
    auto fromAbove = prepareStatement(
        damaged, "SELECT key, kind, value FROM defaults NOT INDEXED WHERE key <= ?1 ORDER BY key DESC LIMIT 1");
    // A tree that contradicts itself may lead to one key more than once: it is kept, or counted
    // lost, once.
    auto insert = prepareStatement(fresh, "INSERT OR IGNORE INTO defaults (key, kind, value) VALUES (?1, ?2, ?3)");
    if (!insert) {
        outcome.failure = std::string("could not write the fresh store: ") + sqlite3_errmsg(fresh);
        return false;
    }
    std::set<std::pair<int, std::string>> lost;
    const auto copy = [&](const StoreKeySalvage::Key& key) {
        sqlite3_stmt* row = nullptr;
        for (sqlite3_stmt* statement : {byKey.get(), fromAbove.get()}) {
            if (statement != nullptr && readRow(statement, key) && sqlite3_column_type(statement, 0) == key.type &&
                text(statement, 0) == key.bytes) {
                row = statement;
                break;
            }
        }
        if (row == nullptr) {
            lost.emplace(key.type, key.bytes);
            return true;
        }
        sqlite3_reset(insert.get());
        for (int column = 0; column < 3; ++column) {
            sqlite3_bind_value(insert.get(), column + 1, sqlite3_column_value(row, column));
        }
        if (sqlite3_step(insert.get()) != SQLITE_DONE) {
            outcome.failure = std::string("could not write the fresh store: ") + sqlite3_errmsg(fresh);
            return false;
        }
        outcome.saved += static_cast<std::size_t>(sqlite3_changes(fresh));
        return true;
    };
    outcome.unlistedKeysLost = StoreKeySalvage::forEachKey(damaged, copy).damaged;
    outcome.lost = lost.size();
    return outcome.failure.empty();
}

// A fresh, configured database at `path` (mode 0600, never through a link) with a write
// transaction open; nothing, and `failure` says why, when it cannot be made.
StoreDatabase createFreshStore(const std::filesystem::path& path, std::string& failure)
{
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        failure = "could not create " + path.string() + ": " + std::strerror(errno);
        return nullptr;
    }
    ::fchmod(fd, 0600);
    ::close(fd);
    auto database = openStoreDatabase(path);
    if (!database || !configureStoreDatabase(database.get()) ||
        sqlite3_exec(database.get(), "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK) {
        failure = "could not prepare " + path.string();
        return nullptr;
    }
    return database;
}

std::string timestamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
    return stamp;
}

std::filesystem::path withSuffix(const std::filesystem::path& path, const std::string& suffix)
{
    std::filesystem::path result = path;
    result += suffix;
    return result;
}

} // namespace

UserDefaultsRepair::Check UserDefaultsRepair::check(std::string_view suiteName)
{
    Check result;
    const auto path = databasePathOf(suiteName);
    if (!path || !isRegularFile(*path)) {
        result.problems.push_back("there is no store for the app group");
        if (path) result.databasePath = *path;
        return result;
    }
    result.databasePath = *path;
    auto database = openStoreDatabase(*path);
    if (!database) {
        result.problems.push_back("the store cannot be opened");
        return result;
    }
    auto statement = prepareStatement(database.get(), "PRAGMA integrity_check(100)");
    int step = SQLITE_ERROR;
    while (statement && (step = sqlite3_step(statement.get())) == SQLITE_ROW) {
        const std::string line = text(statement.get(), 0);
        if (line != "ok") result.problems.push_back(line);
    }
    if (!statement || step != SQLITE_DONE) result.problems.emplace_back(sqlite3_errmsg(database.get()));
    return result;
}

UserDefaultsRepair::Outcome UserDefaultsRepair::repair(std::string_view suiteName)
{
    Outcome outcome;
    const auto path = databasePathOf(suiteName);
    if (!path || !isRegularFile(*path)) {
        outcome.failure = "there is no store for the app group";
        if (path) outcome.databasePath = *path;
        return outcome;
    }
    outcome.databasePath = *path;
    // A connection of this process would go on using the damaged files, and its next write would
    // land there, not in the fresh store.
    if (OpenStores::contains(*path)) {
        outcome.failure = "this process still has the store open; repair it from a process that has not used it";
        return outcome;
    }
    // Read through the tracing file system, so that the salvage can tell which page a failing read
    // stopped at.
    auto damaged = openStoreDatabase(*path, nullptr, ReadTracingFileSystem::name());
    if (!damaged) {
        outcome.failure = "the store cannot be opened";
        return outcome;
    }
    // Closing must neither copy the damaged log back nor remove a log by name: by then the name
    // belongs to the fresh store. Pages are read, never mapped, so that each read is traced.
    sqlite3_db_config(damaged.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_exec(damaged.get(), "PRAGMA mmap_size = 0", nullptr, nullptr, nullptr);
    int locked = SQLITE_BUSY;
    for (int attempt = 0; attempt < lockAttempts && (locked & 0xFF) == SQLITE_BUSY; ++attempt) {
        locked = sqlite3_exec(damaged.get(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    }
    if (locked != SQLITE_OK) {
        outcome.failure = std::string("could not take the store's write lock: ") + sqlite3_errmsg(damaged.get());
        return outcome;
    }

    const auto fresh = withSuffix(*path, ".repair-" + std::to_string(::getpid()));
    {
        auto freshDatabase = createFreshStore(fresh, outcome.failure);
        if (!freshDatabase || !copyReadableRows(damaged.get(), freshDatabase.get(), outcome) ||
            sqlite3_exec(freshDatabase.get(), "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
            if (outcome.failure.empty()) {
                outcome.failure =
                    std::string("could not write the fresh store: ") + sqlite3_errmsg(freshDatabase.get());
            }
            freshDatabase.reset();
            ::unlink(fresh.c_str());
            ::unlink(withSuffix(fresh, "-wal").c_str());
            ::unlink(withSuffix(fresh, "-shm").c_str());
            return outcome;
        }
    } // closing checkpoints the fresh store and removes its log
    outcome.damagedPath = withSuffix(*path, ".damaged-" + timestamp());
    const auto wal = withSuffix(*path, "-wal");
    // The log goes first: a log left under the store's name would be replayed into the fresh one.
    if ((::rename(wal.c_str(), withSuffix(outcome.damagedPath, "-wal").c_str()) != 0 && errno != ENOENT) ||
        ::rename(path->c_str(), outcome.damagedPath.c_str()) != 0 || ::rename(fresh.c_str(), path->c_str()) != 0) {
        outcome.failure = "could not put the fresh store in place of " + path->string();
        ::unlink(fresh.c_str());
        return outcome;
    }
    ::unlink(withSuffix(*path, "-shm").c_str());
    return outcome;
}

} // namespace fexo
