#include <FeXOPlatform/UserDefaults.hpp>

#include <FeXOPlatform/PropertyList.hpp>

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace fexo {

namespace {

constexpr int busyTimeoutMilliseconds = 5000;
// Log pages after which a commit copies the log back into the database.
constexpr int walCheckpointPages = 128;
constexpr int busyAttempts = 6;
constexpr const char* databaseFileName = "defaults.sqlite";

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

constexpr std::array<const char*, static_cast<std::size_t>(Statement::count)> statementTexts = {
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

using Kind = PropertyListValue::Kind;

// Stored form: the kind as an integer and the value as a blob. Text and data are kept as their
// raw bytes, so reading a data value is one blob read; scalars as fixed little-endian bytes,
// exact for every double including NaN; arrays and dictionaries as a binary property list.
void appendLittleEndian(std::string& out, std::uint64_t bits, std::size_t width)
{
    for (std::size_t i = 0; i < width; ++i) out.push_back(static_cast<char>((bits >> (8 * i)) & 0xFF));
}

std::uint64_t readLittleEndian(std::string_view bytes)
{
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) bits |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return bits;
}

std::uint64_t doubleBits(double value)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

double bitsDouble(std::uint64_t bits)
{
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::string encodeValue(const PropertyListValue& value)
{
    std::string out;
    switch (value.kind()) {
    case Kind::string: return *value.string();
    case Kind::data: return value.data()->bytes;
    case Kind::integer: appendLittleEndian(out, static_cast<std::uint64_t>(*value.integer()), 8); return out;
    case Kind::real: appendLittleEndian(out, doubleBits(*value.real()), 8); return out;
    case Kind::date: appendLittleEndian(out, doubleBits(value.date()->timeIntervalSinceReferenceDate()), 8); return out;
    case Kind::boolean: out.push_back(*value.boolean() ? '\1' : '\0'); return out;
    case Kind::array:
    case Kind::dictionary: return PropertyList::serialize(value, PropertyList::Format::binary);
    }
    return out;
}

// Nothing for a row that no writer of this type produced.
std::optional<PropertyListValue> decodeValue(std::int64_t kind, std::string_view bytes)
{
    switch (static_cast<Kind>(kind)) {
    case Kind::string: return PropertyListValue(std::string(bytes));
    case Kind::data: return PropertyListValue(PropertyListValue::Data{std::string(bytes)});
    case Kind::integer:
        if (bytes.size() != 8) return std::nullopt;
        return PropertyListValue(static_cast<std::int64_t>(readLittleEndian(bytes)));
    case Kind::real:
        if (bytes.size() != 8) return std::nullopt;
        return PropertyListValue(bitsDouble(readLittleEndian(bytes)));
    case Kind::date:
        if (bytes.size() != 8) return std::nullopt;
        return PropertyListValue(Date(bitsDouble(readLittleEndian(bytes))));
    case Kind::boolean:
        if (bytes.size() != 1) return std::nullopt;
        return PropertyListValue(bytes[0] != '\0');
    case Kind::array:
    case Kind::dictionary: {
        auto parsed = PropertyList::parse(bytes);
        if (!parsed || parsed->kind() != static_cast<Kind>(kind)) return std::nullopt;
        return parsed;
    }
    }
    return std::nullopt;
}

std::string_view columnBytes(sqlite3_stmt* statement, int column)
{
    const void* blob = sqlite3_column_blob(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    if (blob == nullptr || size <= 0) return {};
    return {static_cast<const char*>(blob), static_cast<std::size_t>(size)};
}

void bindText(sqlite3_stmt* statement, int index, std::string_view text)
{
    sqlite3_bind_text64(statement, index, text.empty() ? "" : text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

void bindBlob(sqlite3_stmt* statement, int index, std::string_view bytes)
{
    // A null pointer would bind SQL NULL; an empty value must stay an empty blob.
    sqlite3_bind_blob64(statement, index, bytes.empty() ? "" : bytes.data(), bytes.size(), SQLITE_STATIC);
}

// The least text above every text that begins with `prefix`, byte-wise; nothing when no such
// bound exists (an empty prefix, or one made only of 0xFF bytes).
std::optional<std::string> prefixUpperBound(std::string_view prefix)
{
    std::string bound(prefix);
    while (!bound.empty()) {
        auto& last = reinterpret_cast<unsigned char&>(bound.back());
        if (last != 0xFF) {
            ++last;
            return bound;
        }
        bound.pop_back();
    }
    return std::nullopt;
}

bool isUsableSuiteName(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

std::optional<std::filesystem::path> appGroupsRoot()
{
    const auto variable = [](const char* name) -> const char* {
        const char* value = std::getenv(name);
        return value != nullptr && *value != '\0' ? value : nullptr;
    };
    if (const char* root = variable("FEXO_APP_GROUPS_DIR")) return std::filesystem::path(root);
    if (const char* data = variable("XDG_DATA_HOME")) return std::filesystem::path(data) / "fexo" / "app-groups";
    if (const char* home = variable("HOME")) return std::filesystem::path(home) / ".local" / "share" / "fexo" / "app-groups";
    return std::nullopt;
}

// Creates each missing folder of `path` with mode 0700; folders that exist are left as they are.
bool makeFolders(const std::filesystem::path& path)
{
    std::filesystem::path partial;
    for (const auto& component : path) {
        partial /= component;
        if (::mkdir(partial.c_str(), 0700) == 0) {
            ::chmod(partial.c_str(), 0700); // the umask may have taken bits away
            continue;
        }
        if (errno != EEXIST) return false;
    }
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

struct DatabaseCloser {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
using DatabaseHandle = std::unique_ptr<sqlite3, DatabaseCloser>;

// SQLite opens a write-ahead log with "create", and a file opened that way has its directory
// synced on the first sync, even when the log was already there and its directory entry long
// durable. Since connections leave the log in place, nearly every short-lived process would pay
// that extra flush. This file system is the platform's own with one change: a log that exists is
// opened without "create" (and so without the directory sync); if it vanished meanwhile, the
// open is retried as SQLite asked.
int openExistingLogPlainly(sqlite3_vfs* vfs, sqlite3_filename name, sqlite3_file* file, int flags, int* outFlags)
{
    auto* platform = static_cast<sqlite3_vfs*>(vfs->pAppData);
    if ((flags & SQLITE_OPEN_WAL) != 0 && (flags & SQLITE_OPEN_CREATE) != 0 && name != nullptr && ::access(name, F_OK) == 0) {
        if (platform->xOpen(platform, name, file, flags & ~SQLITE_OPEN_CREATE, outFlags) == SQLITE_OK) return SQLITE_OK;
    }
    return platform->xOpen(platform, name, file, flags, outFlags);
}

const char* storeFileSystem()
{
    static const char* const name = [] {
        static sqlite3_vfs fileSystem{};
        sqlite3_initialize();
        sqlite3_vfs* platform = sqlite3_vfs_find(nullptr);
        if (platform == nullptr) return static_cast<const char*>(nullptr);
        fileSystem = *platform;
        fileSystem.pNext = nullptr;
        fileSystem.zName = "fexo-store";
        fileSystem.pAppData = platform;
        fileSystem.xOpen = openExistingLogPlainly;
        if (sqlite3_vfs_register(&fileSystem, 0) != SQLITE_OK) return static_cast<const char*>(nullptr);
        return fileSystem.zName;
    }();
    return name;
}

DatabaseHandle openDatabase(const std::filesystem::path& path)
{
    sqlite3* raw = nullptr;
    const int opened = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW,
                                       storeFileSystem());
    DatabaseHandle database(raw);
    if (opened != SQLITE_OK) return nullptr;
    // The busy timeout comes first: every later step may wait for a lock of another process.
    sqlite3_busy_timeout(database.get(), busyTimeoutMilliseconds);
    return database;
}

bool execute(sqlite3* database, const char* sql)
{
    return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::string journalMode(sqlite3* database, const char* pragma)
{
    sqlite3_stmt* statement = nullptr;
    std::string mode;
    if (sqlite3_prepare_v2(database, pragma, -1, &statement, nullptr) == SQLITE_OK && sqlite3_step(statement) == SQLITE_ROW) {
        if (const auto* text = sqlite3_column_text(statement, 0)) mode = reinterpret_cast<const char*>(text);
    }
    sqlite3_finalize(statement);
    return mode;
}

// Brings an opened database to WAL mode with the table in place. Converting to WAL needs
// every other connection gone, which is why new files are made ready before they are published.
bool configure(sqlite3* database)
{
    if (journalMode(database, "PRAGMA journal_mode") != "wal" && journalMode(database, "PRAGMA journal_mode = WAL") != "wal") {
        return false;
    }
    // FULL: a commit that returned is on disk, not only in the page cache.
    return execute(database, "PRAGMA synchronous = FULL") &&
           execute(database, "CREATE TABLE IF NOT EXISTS defaults ("
                             "key TEXT PRIMARY KEY NOT NULL, kind INTEGER NOT NULL, value BLOB NOT NULL"
                             ") WITHOUT ROWID");
}

// Makes sure the database file exists, mode 0600, already in WAL mode and with its table, so that
// processes opening the suite at once never race to convert it. A new file is prepared under a
// private name and published with link(), which fails harmlessly when another process won.
// SQLite gives its -wal and -shm files the mode of the database file.
bool publishDatabaseFile(const std::filesystem::path& path)
{
    struct stat status {};
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
        auto database = openDatabase(draft);
        ready = database && configure(database.get());
    }
    const bool published = ready && (::link(draft.c_str(), path.c_str()) == 0 || errno == EEXIST);
    ::unlink(draft.c_str());
    return published;
}

} // namespace

struct UserDefaults::Connection {
    sqlite3* database = nullptr;
    std::array<sqlite3_stmt*, static_cast<std::size_t>(Statement::count)> statements{};
    // Depth of performExclusively() calls on the owning thread; writes inside one join it.
    int transactionDepth = 0;
    bool transactionFailed = false;

    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    ~Connection()
    {
        for (auto* statement : statements) sqlite3_finalize(statement);
        sqlite3_close_v2(database);
    }

    // The cached statement, reset and unbound when the returned guard goes away.
    class Use {
    public:
        explicit Use(sqlite3_stmt* statement) : statement_(statement) {}
        ~Use()
        {
            if (statement_ == nullptr) return;
            sqlite3_reset(statement_);
            sqlite3_clear_bindings(statement_);
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        sqlite3_stmt* get() const { return statement_; }
        explicit operator bool() const { return statement_ != nullptr; }

    private:
        sqlite3_stmt* statement_;
    };

    Use use(Statement which)
    {
        auto& slot = statements[static_cast<std::size_t>(which)];
        if (slot == nullptr) {
            sqlite3_prepare_v3(database, statementTexts[static_cast<std::size_t>(which)], -1, SQLITE_PREPARE_PERSISTENT, &slot, nullptr);
        }
        return Use(slot);
    }

    // Runs a statement that returns no rows; a failure inside a transaction dooms it.
    bool run(Use& statement)
    {
        const bool ok = statement && stepToEnd(statement.get());
        if (!ok && transactionDepth > 0) transactionFailed = true;
        return ok;
    }

    bool runStatement(Statement which)
    {
        auto statement = use(which);
        return statement && stepToEnd(statement.get());
    }

    // A writer that other processes keep from the lock past the busy timeout tries again: the
    // timeout's waits are not fair, and a change that failed with SQLITE_BUSY left nothing behind.
    bool stepToEnd(sqlite3_stmt* statement)
    {
        for (int attempt = 1;; ++attempt) {
            const int result = sqlite3_step(statement);
            if (result == SQLITE_DONE) return true;
            if ((result & 0xFF) != SQLITE_BUSY || attempt == busyAttempts || transactionDepth > 0) return false;
            sqlite3_reset(statement);
        }
    }
};

std::optional<std::filesystem::path> UserDefaults::containerPath(std::string_view suiteName)
{
    if (!isUsableSuiteName(suiteName)) return std::nullopt;
    auto root = appGroupsRoot();
    if (!root) return std::nullopt;
    return *root / std::string(suiteName);
}

std::shared_ptr<UserDefaults> UserDefaults::open(std::string_view suiteName)
{
    const auto container = containerPath(suiteName);
    if (!container || !makeFolders(*container)) return nullptr;
    const auto databasePath = *container / databaseFileName;
    if (!publishDatabaseFile(databasePath)) return nullptr;

    auto database = openDatabase(databasePath);
    if (!database || !configure(database.get())) return nullptr;
    // The sync of the log at each commit is all a change needs, so the connection leaves the log
    // as it is when it goes away instead of copying it into the database (two more syncs, which
    // every short-lived extension process would pay). The next opener rebuilds its index from
    // the log; the small checkpoint threshold keeps that read and the log short. (A new file's
    // draft connection does checkpoint when it closes: its log must not stay behind.)
    sqlite3_db_config(database.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_wal_autocheckpoint(database.get(), walCheckpointPages);
    // After one large change (say, deleting every record) the log file shrinks back once copied.
    // The page cache is bounded to 512 KiB: an extension process lives with little memory, its
    // work is a few point reads and writes, and the whole-store scans of the app read pages in
    // order, which the system's file cache serves as well.
    if (!execute(database.get(), "PRAGMA journal_size_limit = 4194304; PRAGMA cache_size = -512")) return nullptr;
    auto connection = std::make_unique<Connection>();
    connection->database = database.release();
    return std::shared_ptr<UserDefaults>(new UserDefaults(std::string(suiteName), databasePath, std::move(connection)));
}

UserDefaults::UserDefaults(std::string suiteName, std::filesystem::path databasePath, std::unique_ptr<Connection> connection)
    : suiteName_(std::move(suiteName)), databasePath_(std::move(databasePath)), connection_(std::move(connection))
{
}

UserDefaults::~UserDefaults() = default;

bool UserDefaults::setObject(const PropertyListValue& value, std::string_view key)
{
    const std::string bytes = encodeValue(value);
    std::lock_guard lock(mutex_);
    auto statement = connection_->use(Statement::upsert);
    if (!statement) return connection_->run(statement);
    bindText(statement.get(), 1, key);
    sqlite3_bind_int64(statement.get(), 2, static_cast<std::int64_t>(value.kind()));
    bindBlob(statement.get(), 3, bytes);
    return connection_->run(statement);
}

bool UserDefaults::setData(std::string_view bytes, std::string_view key)
{
    std::lock_guard lock(mutex_);
    auto statement = connection_->use(Statement::upsert);
    if (!statement) return connection_->run(statement);
    bindText(statement.get(), 1, key);
    sqlite3_bind_int64(statement.get(), 2, static_cast<std::int64_t>(Kind::data));
    bindBlob(statement.get(), 3, bytes);
    return connection_->run(statement);
}

bool UserDefaults::removeObjectForKey(std::string_view key)
{
    std::lock_guard lock(mutex_);
    auto statement = connection_->use(Statement::remove);
    if (statement) bindText(statement.get(), 1, key);
    return connection_->run(statement);
}

std::optional<PropertyListValue> UserDefaults::object(std::string_view key) const
{
    std::lock_guard lock(mutex_);
    auto statement = connection_->use(Statement::select);
    if (!statement) return std::nullopt;
    bindText(statement.get(), 1, key);
    if (sqlite3_step(statement.get()) == SQLITE_ROW) {
        return decodeValue(sqlite3_column_int64(statement.get(), 0), columnBytes(statement.get(), 1));
    }
    const auto registered = registered_.find(key);
    if (registered != registered_.end()) return registered->second;
    return std::nullopt;
}

std::optional<std::string> UserDefaults::dataForKey(std::string_view key) const
{
    std::lock_guard lock(mutex_);
    auto statement = connection_->use(Statement::select);
    if (!statement) return std::nullopt;
    bindText(statement.get(), 1, key);
    if (sqlite3_step(statement.get()) == SQLITE_ROW) {
        if (sqlite3_column_int64(statement.get(), 0) != static_cast<std::int64_t>(Kind::data)) return std::nullopt;
        return std::string(columnBytes(statement.get(), 1));
    }
    const auto registered = registered_.find(key);
    if (registered != registered_.end() && registered->second.data() != nullptr) return registered->second.data()->bytes;
    return std::nullopt;
}

PropertyListValue::Dictionary UserDefaults::dictionaryRepresentation() const
{
    std::lock_guard lock(mutex_);
    PropertyListValue::Dictionary result = registered_;
    auto statement = connection_->use(Statement::selectAll);
    if (!statement) return result;
    while (sqlite3_step(statement.get()) == SQLITE_ROW) {
        auto value = decodeValue(sqlite3_column_int64(statement.get(), 1), columnBytes(statement.get(), 2));
        if (!value) continue;
        result.insert_or_assign(std::string(columnBytes(statement.get(), 0)), std::move(*value));
    }
    return result;
}

std::vector<std::string> UserDefaults::keysWithPrefix(std::string_view prefix) const
{
    std::vector<std::string> keys;
    const auto upper = prefixUpperBound(prefix);
    std::lock_guard lock(mutex_);
    auto statement = connection_->use(upper ? Statement::keysInRange : Statement::keysFrom);
    if (!statement) return keys;
    bindText(statement.get(), 1, prefix);
    if (upper) bindText(statement.get(), 2, *upper);
    while (sqlite3_step(statement.get()) == SQLITE_ROW) keys.emplace_back(columnBytes(statement.get(), 0));
    return keys;
}

std::vector<std::pair<std::string, std::string>> UserDefaults::dataWithKeyPrefix(std::string_view prefix) const
{
    std::vector<std::pair<std::string, std::string>> entries;
    const auto upper = prefixUpperBound(prefix);
    std::lock_guard lock(mutex_);
    auto statement = connection_->use(upper ? Statement::dataInRange : Statement::dataFrom);
    if (!statement) return entries;
    bindText(statement.get(), 1, prefix);
    if (upper) bindText(statement.get(), 2, *upper);
    sqlite3_bind_int64(statement.get(), 3, static_cast<std::int64_t>(Kind::data));
    while (sqlite3_step(statement.get()) == SQLITE_ROW) {
        entries.emplace_back(columnBytes(statement.get(), 0), columnBytes(statement.get(), 1));
    }
    return entries;
}

void UserDefaults::registerDefaults(const PropertyListValue::Dictionary& defaults)
{
    std::lock_guard lock(mutex_);
    for (const auto& [key, value] : defaults) registered_.insert_or_assign(key, value);
}

bool UserDefaults::performExclusively(const std::function<void()>& body)
{
    std::lock_guard lock(mutex_);
    auto& connection = *connection_;
    if (connection.transactionDepth > 0) {
        ++connection.transactionDepth;
        struct Leave {
            int& depth;
            ~Leave() { --depth; }
        } leave{connection.transactionDepth};
        body();
        return !connection.transactionFailed;
    }

    if (!connection.runStatement(Statement::begin)) return false;
    connection.transactionDepth = 1;
    connection.transactionFailed = false;
    try {
        body();
    } catch (...) {
        connection.transactionDepth = 0;
        connection.runStatement(Statement::rollback);
        throw;
    }
    connection.transactionDepth = 0;
    if (!connection.transactionFailed && connection.runStatement(Statement::commit)) return true;
    // Also covers a failed COMMIT, after which the transaction may still be open.
    if (!sqlite3_get_autocommit(connection.database)) connection.runStatement(Statement::rollback);
    return false;
}

} // namespace fexo
