#include <FeXOPlatform/UserDefaults.hpp>

#include <FeXOPlatform/AppGroupFolders.hpp>
#include <FeXOPlatform/StoreChangeSignal.hpp>
#include <FeXOPlatform/StoreConnection.hpp>
#include <FeXOPlatform/StoreDatabaseFile.hpp>
#include <FeXOPlatform/StoredValueEncoding.hpp>

#include <sqlite3.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace fexo {

namespace {

using Statement = StoreConnection::Statement;

// Log pages after which a commit copies the log back into the database.
constexpr int walCheckpointPages = 128;
constexpr const char* databaseFileName = "defaults.sqlite";

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

void bindKind(sqlite3_stmt* statement, int index, StoredKind kind)
{
    sqlite3_bind_int64(statement, index, static_cast<std::int64_t>(kind));
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

} // namespace

std::optional<std::filesystem::path> UserDefaults::containerPath(std::string_view suiteName)
{
    if (!isUsableSuiteName(suiteName)) return std::nullopt;
    auto root = appGroupsRoot();
    if (!root) return std::nullopt;
    return *root / std::string(suiteName);
}

std::shared_ptr<UserDefaults> UserDefaults::open(std::string_view suiteName)
{
    std::string whyNot;
    return open(suiteName, whyNot);
}

std::optional<std::string> UserDefaults::whyNotOpenable(std::string_view suiteName)
{
    std::filesystem::path folder;
    if (auto whyNot = whySuiteFolderCannotBePrepared(suiteName, folder)) return whyNot;
    const auto databasePath = folder / databaseFileName;
    struct stat status { };
    if (::lstat(databasePath.c_str(), &status) != 0) {
        if (errno != ENOENT) return databasePath.string() + ": " + std::strerror(errno);
        // The store would be made in its folder (which may not exist yet: then its nearest
        // existing ancestor was found writable above).
        if (::access(folder.c_str(), F_OK) == 0 && ::access(folder.c_str(), W_OK | X_OK) != 0)
            return folder.string() + ": " + std::strerror(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode))
        return databasePath.string() + ": is not a regular file (a symbolic link or another file stands there)";
    return whyStoreCannotBeRead(databasePath);
}

std::shared_ptr<UserDefaults> UserDefaults::open(std::string_view suiteName, std::string& whyNot)
{
    const auto container = prepareSuiteFolder(suiteName, whyNot);
    if (!container) return nullptr;
    const auto databasePath = *container / databaseFileName;
    if (!publishStoreDatabase(databasePath, whyNot)) return nullptr;

    auto database = openStoreDatabase(databasePath, &whyNot);
    if (!database) return nullptr;
    if (!configureStoreDatabase(database.get())) {
        whyNot = storeFailure(database.get(), databasePath);
        return nullptr;
    }
    // The sync of the log at each commit is all a change needs, so the connection leaves the log
    // as it is when it goes away instead of copying it into the database (two more syncs, which
    // every short-lived extension process would pay). The next opener rebuilds its index from
    // the log; the connection's log limit keeps that read and the log short.
    sqlite3_db_config(database.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    // After one large change (say, deleting every record) the log file shrinks back once copied.
    // The page cache is bounded to 512 KiB: an extension process lives with little memory, its
    // work is a few point reads and writes, and the whole-store scans of the app read pages in
    // order, which the system's file cache serves as well.
    if (sqlite3_exec(database.get(), "PRAGMA journal_size_limit = 4194304; PRAGMA cache_size = -512", nullptr, nullptr,
                     nullptr) != SQLITE_OK) {
        whyNot = storeFailure(database.get(), databasePath);
        return nullptr;
    }
    auto connection = std::make_unique<StoreConnection>(database.release(), databasePath);
    connection->limitLog(walCheckpointPages);
    return std::shared_ptr<UserDefaults>(new UserDefaults(std::string(suiteName), databasePath, std::move(connection)));
}

UserDefaults::UserDefaults(std::string suiteName, std::filesystem::path databasePath,
                           std::unique_ptr<StoreConnection> connection)
    : suiteName_(std::move(suiteName)), databasePath_(std::move(databasePath)),
      changeSignal_(std::make_unique<StoreChangeSignal>(databasePath_)), connection_(std::move(connection))
{
    connection_->setCommitObserver([signal = changeSignal_.get()] { signal->raise(); });
}

UserDefaults::~UserDefaults() = default;

bool UserDefaults::setObject(const PropertyListValue& value, std::string_view key)
{
    const std::string bytes = encodeStoredValue(value);
    std::lock_guard lock(mutex_);
    auto statement = connection_->use(Statement::upsert);
    if (statement) {
        bindText(statement.get(), 1, key);
        bindKind(statement.get(), 2, storedKindOf(value.kind()));
        bindBlob(statement.get(), 3, bytes);
    }
    return statement.run();
}

bool UserDefaults::setData(std::string_view bytes, std::string_view key)
{
    std::lock_guard lock(mutex_);
    auto statement = connection_->use(Statement::upsert);
    if (statement) {
        bindText(statement.get(), 1, key);
        bindKind(statement.get(), 2, StoredKind::data);
        bindBlob(statement.get(), 3, bytes);
    }
    return statement.run();
}

bool UserDefaults::removeObjectForKey(std::string_view key)
{
    std::lock_guard lock(mutex_);
    auto statement = connection_->use(Statement::remove);
    if (statement) bindText(statement.get(), 1, key);
    return statement.run();
}

std::string UserDefaults::lastWriteFailure() const
{
    std::lock_guard lock(mutex_);
    return connection_->lastFailure();
}

std::optional<PropertyListValue> UserDefaults::object(std::string_view key) const
{
    std::lock_guard lock(mutex_);
    auto statement = connection_->read(Statement::select);
    bindText(statement.get(), 1, key);
    if (statement.nextRow())
        return decodeStoredValue(sqlite3_column_int64(statement.get(), 0), columnBytes(statement.get(), 1));
    const auto registered = registered_.find(key);
    if (registered != registered_.end()) return registered->second;
    return std::nullopt;
}

std::optional<std::string> UserDefaults::dataForKey(std::string_view key) const
{
    std::lock_guard lock(mutex_);
    auto statement = connection_->read(Statement::select);
    bindText(statement.get(), 1, key);
    if (statement.nextRow()) {
        if (sqlite3_column_int64(statement.get(), 0) != static_cast<std::int64_t>(StoredKind::data))
            return std::nullopt;
        return std::string(columnBytes(statement.get(), 1));
    }
    const auto registered = registered_.find(key);
    if (registered != registered_.end() && registered->second.data() != nullptr)
        return registered->second.data()->bytes;
    return std::nullopt;
}

PropertyListValue::Dictionary UserDefaults::dictionaryRepresentation() const
{
    std::lock_guard lock(mutex_);
    PropertyListValue::Dictionary result = registered_;
    auto statement = connection_->read(Statement::selectAll);
    while (statement.nextRow()) {
        auto value = decodeStoredValue(sqlite3_column_int64(statement.get(), 1), columnBytes(statement.get(), 2));
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
    auto statement = connection_->read(upper ? Statement::keysInRange : Statement::keysFrom);
    bindText(statement.get(), 1, prefix);
    if (upper) bindText(statement.get(), 2, *upper);
    while (statement.nextRow()) keys.emplace_back(columnBytes(statement.get(), 0));
    return keys;
}

std::vector<std::pair<std::string, std::string>> UserDefaults::dataWithKeyPrefix(std::string_view prefix) const
{
    std::vector<std::pair<std::string, std::string>> entries;
    const auto upper = prefixUpperBound(prefix);
    std::lock_guard lock(mutex_);
    auto statement = connection_->read(upper ? Statement::dataInRange : Statement::dataFrom);
    bindText(statement.get(), 1, prefix);
    if (upper) bindText(statement.get(), 2, *upper);
    bindKind(statement.get(), 3, StoredKind::data);
    while (statement.nextRow()) entries.emplace_back(columnBytes(statement.get(), 0), columnBytes(statement.get(), 1));
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
    return connection_->performExclusively(body);
}

} // namespace fexo
