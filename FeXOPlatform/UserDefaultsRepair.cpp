#include <FeXOPlatform/UserDefaultsRepair.hpp>

#include <FeXOPlatform/AppGroupFolders.hpp>
#include <FeXOPlatform/OpenStores.hpp>
#include <FeXOPlatform/StoreDatabaseFile.hpp>

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <optional>

namespace fexo {

namespace {

constexpr int lockAttempts = 6;

struct StatementFinalizer {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

Statement prepare(sqlite3* database, const char* sql)
{
    sqlite3_stmt* raw = nullptr;
    sqlite3_prepare_v2(database, sql, -1, &raw, nullptr);
    return Statement(raw);
}

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

struct Row {
    std::string key;
    std::int64_t kind = 0;
    std::string value;
};

// Bounds the probes of a badly damaged store; each costs one seek.
constexpr int probeLimit = 100000;

enum class Probe {
    row,
    end,
    damage
};

// Steps `statement` once after binding `from` to its first parameter.
Probe step(sqlite3_stmt* statement, const std::string& from)
{
    sqlite3_reset(statement);
    sqlite3_bind_text64(statement, 1, from.data(), from.size(), SQLITE_STATIC, SQLITE_UTF8);
    const int result = sqlite3_step(statement);
    return result == SQLITE_ROW ? Probe::row : result == SQLITE_DONE ? Probe::end : Probe::damage;
}

// Every key that can still be listed, in ascending order. A scan stops at the first damaged
// page; the scan then goes on from the nearest text beyond the last key read whose seek lands on
// a sound page: the last key with its final byte raised, else with the byte before raised, and
// so on, so that the jump over the damage is as short as the key's own structure allows.
std::vector<std::string> salvageKeys(sqlite3* database, bool& damaged)
{
    std::vector<std::string> keys;
    damaged = false;
    auto scan = prepare(database, "SELECT key FROM defaults WHERE key >= ?1 ORDER BY key");
    if (!scan) {
        damaged = true;
        return keys;
    }
    std::string from;
    int probes = 0;
    for (;;) {
        Probe outcome = step(scan.get(), from);
        const std::size_t before = keys.size();
        while (outcome == Probe::row) {
            keys.push_back(text(scan.get(), 0));
            const int result = sqlite3_step(scan.get());
            outcome = result == SQLITE_ROW ? Probe::row : result == SQLITE_DONE ? Probe::end : Probe::damage;
        }
        if (outcome == Probe::end) break;
        damaged = true;
        const std::string last = keys.size() > before ? keys.back() : from;
        std::optional<std::string> next;
        // Position `length` raised to each greater byte; an empty last key starts from byte 0.
        for (std::size_t length = std::max<std::size_t>(last.size(), 1);
             length-- > 0 && !next && probes < probeLimit;) {
            const unsigned first = length < last.size() ? static_cast<unsigned char>(last[length]) + 1u : 0u;
            for (unsigned byte = first; byte <= 0xFF && probes < probeLimit; ++byte, ++probes) {
                std::string candidate = last.substr(0, length) + static_cast<char>(byte);
                const Probe landed = step(scan.get(), candidate);
                if (landed == Probe::damage) continue;
                if (landed == Probe::row) next = std::move(candidate);
                length = 0; // a sound page beyond, or nothing beyond at all: stop looking
                break;
            }
        }
        if (!next) break;
        from = std::move(*next);
    }
    return keys;
}

// Every row that can still be read: the keys that can be listed, then each key's value on its
// own, so that one unreadable value costs only its key.
std::vector<Row> salvage(sqlite3* database, UserDefaultsRepair::Outcome& outcome)
{
    bool damaged = false;
    const auto keys = salvageKeys(database, damaged);
    outcome.unlistedKeysLost = damaged;

    std::vector<Row> rows;
    auto select = prepare(database, "SELECT kind, value FROM defaults WHERE key = ?1");
    for (const auto& key : keys) {
        if (!select) {
            ++outcome.lost;
            continue;
        }
        sqlite3_reset(select.get());
        sqlite3_bind_text64(select.get(), 1, key.data(), key.size(), SQLITE_STATIC, SQLITE_UTF8);
        if (sqlite3_step(select.get()) == SQLITE_ROW) {
            rows.push_back({key, sqlite3_column_int64(select.get(), 0), text(select.get(), 1)});
        } else {
            ++outcome.lost;
        }
    }
    outcome.saved = rows.size();
    return rows;
}

// A fresh, configured, checkpointed database at `path` holding `rows`.
bool writeFreshStore(const std::filesystem::path& path, const std::vector<Row>& rows, std::string& failure)
{
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        failure = "could not create " + path.string();
        return false;
    }
    ::fchmod(fd, 0600);
    ::close(fd);
    auto database = openStoreDatabase(path);
    if (!database || !configureStoreDatabase(database.get())) {
        failure = "could not prepare " + path.string();
        return false;
    }
    bool ok = sqlite3_exec(database.get(), "BEGIN", nullptr, nullptr, nullptr) == SQLITE_OK;
    auto insert = prepare(database.get(), "INSERT INTO defaults (key, kind, value) VALUES (?1, ?2, ?3)");
    ok = ok && insert;
    for (std::size_t i = 0; ok && i < rows.size(); ++i) {
        sqlite3_reset(insert.get());
        sqlite3_bind_text64(insert.get(), 1, rows[i].key.data(), rows[i].key.size(), SQLITE_STATIC, SQLITE_UTF8);
        sqlite3_bind_int64(insert.get(), 2, rows[i].kind);
        sqlite3_bind_blob64(insert.get(), 3, rows[i].value.empty() ? "" : rows[i].value.data(), rows[i].value.size(),
                            SQLITE_STATIC);
        ok = sqlite3_step(insert.get()) == SQLITE_DONE;
    }
    insert.reset();
    ok = ok && sqlite3_exec(database.get(), "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
    if (!ok) failure = std::string("could not write the fresh store: ") + sqlite3_errmsg(database.get());
    return ok; // closing checkpoints and removes the fresh store's log
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
    auto statement = prepare(database.get(), "PRAGMA integrity_check(100)");
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
    auto damaged = openStoreDatabase(*path);
    if (!damaged) {
        outcome.failure = "the store cannot be opened";
        return outcome;
    }
    // Closing must neither copy the damaged log back nor remove a log by name: by then the name
    // belongs to the fresh store.
    sqlite3_db_config(damaged.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    int locked = SQLITE_BUSY;
    for (int attempt = 0; attempt < lockAttempts && (locked & 0xFF) == SQLITE_BUSY; ++attempt) {
        locked = sqlite3_exec(damaged.get(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    }
    if (locked != SQLITE_OK) {
        outcome.failure = std::string("could not take the store's write lock: ") + sqlite3_errmsg(damaged.get());
        return outcome;
    }

    const auto rows = salvage(damaged.get(), outcome);
    const auto fresh = withSuffix(*path, ".repair-" + std::to_string(::getpid()));
    if (!writeFreshStore(fresh, rows, outcome.failure)) {
        ::unlink(fresh.c_str());
        return outcome;
    }
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
