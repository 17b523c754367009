#include <FeXOPlatform/StoreRecordIndex.hpp>

#include <FeXOPlatform/FatalError.hpp>
#include <FeXOPlatform/StoreConnection.hpp>
#include <FeXOPlatform/StoredValueEncoding.hpp>
#include <FeXOPlatform/UserDefaults.hpp>

#include <sqlite3.h>

namespace fexo {

namespace {

std::string literal(std::string_view text)
{
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'') quoted += '\'';
        quoted += c;
    }
    return quoted + "'";
}

std::string upperBound(std::string_view prefix)
{
    std::string bound(prefix);
    while (static_cast<unsigned char>(bound.back()) == 0xFF) bound.pop_back();
    ++reinterpret_cast<unsigned char&>(bound.back());
    return bound;
}

// A member of a JSON object, or NULL for bytes that are not JSON (json_extract alone would fail
// the write that stores them).
std::string member(std::string_view name)
{
    return "(CASE WHEN json_valid(value) THEN json_extract(value, " + literal("$." + std::string(name)) + ") END)";
}

const std::string pagingCache = "PRAGMA cache_size = -2000";

std::string_view columnBytes(sqlite3_stmt* statement, int column)
{
    const void* blob = sqlite3_column_blob(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    if (blob == nullptr || size <= 0) return {};
    return {static_cast<const char*>(blob), static_cast<std::size_t>(size)};
}

// A read transaction around several statements, so that they see one snapshot; joins one that is
// already open.
class Snapshot {
public:
    explicit Snapshot(sqlite3* database) : database_(sqlite3_get_autocommit(database) ? database : nullptr)
    {
        if (database_ != nullptr) sqlite3_exec(database_, "BEGIN", nullptr, nullptr, nullptr);
    }
    ~Snapshot()
    {
        if (database_ != nullptr) sqlite3_exec(database_, "COMMIT", nullptr, nullptr, nullptr);
    }
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;

private:
    sqlite3* database_;
};

std::uint64_t countOf(StoreConnection& connection, const std::string& sql)
{
    auto statement = connection.read(sql);
    return statement.nextRow() ? static_cast<std::uint64_t>(sqlite3_column_int64(statement.get(), 0)) : 0;
}

} // namespace

StoreRecordIndex::StoreRecordIndex(std::string_view name, std::string_view keyPrefix, std::string_view orderMember,
                                   std::string_view flagMember, std::initializer_list<std::string_view> textMembers)
    : orderIndex_(std::string(name) + "_by_order"), flagIndex_(std::string(name) + "_unflagged"),
      uncountedIndex_(std::string(name) + "_uncounted")
{
    const std::string records = "key >= " + literal(keyPrefix) + " AND key < " + literal(upperBound(keyPrefix)) +
                                " AND kind = " + std::to_string(static_cast<std::int64_t>(StoredKind::data));
    // 1 when one of the text members is a text that is not empty, else 0 (bytes that are not
    // JSON included: json_type would fail on them).
    std::string anyText;
    for (const auto path : textMembers) {
        const std::string at = literal("$." + std::string(path));
        anyText += (anyText.empty() ? "" : " OR ") + std::string("(json_type(value, ") + at +
                   ") IS 'text' AND json_extract(value, " + at + ") <> '')";
    }
    const std::string counts = "(CASE WHEN json_valid(value) THEN " + anyText + " ELSE 0 END)";
    const std::string order = member(orderMember);
    const std::string unflagged = member(flagMember) + " IS NOT 1";
    // The kind rides in the order index so that counting its entries reads the index alone. A
    // query with a term over the value is read from an index alone only when the index holds the
    // value (SQLite 3.40 fetches the row for each entry otherwise, about twice the cost of a wake
    // between processes at 64 records): the flag index holds the whole of the unflagged records
    // that count, and only them, and the uncounted index the whole of those that do not count,
    // so each count costs what there are of those.
    orderDefinition_ = orderIndex_ + " ON defaults (" + order + " DESC, key, kind) WHERE " + records;
    flagDefinition_ =
        flagIndex_ + " ON defaults (key, kind, value) WHERE " + records + " AND " + counts + " = 1 AND " + unflagged;
    uncountedDefinition_ =
        uncountedIndex_ + " ON defaults (key, kind, value) WHERE " + records + " AND " + counts + " = 0";

    // Pages read each record's value anyway: those that do not count are passed over there.
    const std::string rows = "SELECT key, value, " + order + " FROM defaults INDEXED BY " + orderIndex_ + " WHERE " +
                             records + " AND " + counts + " = 1";
    queries_.firstPage = rows + " ORDER BY " + order + " DESC, key LIMIT ?1";
    queries_.sameOrderAfter = rows + " AND " + order + " = ?2 AND key > ?3 ORDER BY key LIMIT ?1";
    queries_.orderBelow = rows + " AND " + order + " < ?2 ORDER BY " + order + " DESC, key LIMIT ?1";
    queries_.unorderedAfter = rows + " AND " + order + " IS NULL AND key > ?3 ORDER BY key LIMIT ?1";
    queries_.total = "SELECT (SELECT count(*) FROM defaults INDEXED BY " + orderIndex_ + " WHERE " + records +
                     ") - (SELECT count(*) FROM defaults INDEXED BY " + uncountedIndex_ + " WHERE " + records +
                     " AND " + counts + " = 0)";
    const std::string unflaggedWhere =
        " FROM defaults INDEXED BY " + flagIndex_ + " WHERE " + records + " AND " + counts + " = 1 AND " + unflagged;
    queries_.unflagged = "SELECT count(*)" + unflaggedWhere;
    queries_.unflaggedRows = "SELECT key, value" + unflaggedWhere + " ORDER BY key";
    // One statement, so one snapshot without a transaction around it.
    queries_.counts = "SELECT (" + queries_.total + "), (" + queries_.unflagged + ")";
}

bool StoreRecordIndex::ensure(UserDefaults& store) const
{
    std::lock_guard lock(store.mutex_);
    StoreConnection& connection = *store.connection_;
    sqlite3* database = connection.database();
    // SQLite keeps each index's statement as "CREATE INDEX " and the text after IF NOT EXISTS.
    const auto made = [&](const std::string& name, const std::string& definition) {
        auto statement = connection.read("SELECT sql FROM sqlite_schema WHERE type = 'index' AND name = ?1");
        sqlite3_bind_text64(statement.get(), 1, name.data(), name.size(), SQLITE_STATIC, SQLITE_UTF8);
        if (!statement.nextRow()) return false;
        const auto* sql = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), 0));
        return sql != nullptr && sql == "CREATE INDEX " + definition;
    };
    const auto execute = [&](const std::string& sql) {
        const int result = sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) & 0xFF;
        // A store that cannot be read is not one without an index: say so, as every read does.
        if (result == SQLITE_CORRUPT || result == SQLITE_NOTADB || result == SQLITE_IOERR) {
            fatalError("The app group store \"" + store.databasePath().string() +
                       "\" could not be read: " + sqlite3_errmsg(database));
        }
        return result == SQLITE_OK;
    };
    for (const auto& [name, definition] : {std::pair{&orderIndex_, &orderDefinition_},
                                           {&flagIndex_, &flagDefinition_},
                                           {&uncountedIndex_, &uncountedDefinition_}}) {
        if (made(*name, *definition)) continue;
        // Missing, or made by another version of this layer: replaced under the write lock, where
        // a second process that waited for the first finds it made and does nothing.
        if (!execute("BEGIN IMMEDIATE")) return false;
        const bool replaced = made(*name, *definition) ||
                              (execute("DROP INDEX IF EXISTS " + *name) && execute("CREATE INDEX " + *definition));
        if (!replaced || !execute("COMMIT")) {
            execute("ROLLBACK");
            return false;
        }
    }
    return true;
}

std::vector<StoreRecordIndex::Row> StoreRecordIndex::page(UserDefaults& store, std::size_t limit,
                                                          const std::optional<Position>& after) const
{
    std::vector<Row> rows;
    if (limit == 0) return rows;
    std::lock_guard lock(store.mutex_);
    StoreConnection& connection = *store.connection_;
    // The suite's connection keeps a small page cache for short-lived writers; a process that
    // pages (an app showing its inbox) reads a page's rows from all over the table and keeps
    // SQLite's default cache instead, or every page reads most of them from the file again.
    connection.use(pagingCache).run();
    // A first page is one statement; the later ones, several.
    std::optional<Snapshot> snapshot;
    if (after) snapshot.emplace(connection.database());

    // Keyset steps, each one range of the index: the rest of the position's own order value, then
    // the lower values, then the records without one.
    const auto run = [&](const std::string& sql, const std::optional<double>& order, std::string_view key) {
        if (rows.size() >= limit) return;
        auto statement = connection.read(sql);
        sqlite3_bind_int64(statement.get(), 1, static_cast<sqlite3_int64>(limit - rows.size()));
        if (order) sqlite3_bind_double(statement.get(), 2, *order);
        sqlite3_bind_text64(statement.get(), 3, key.data(), key.size(), SQLITE_STATIC, SQLITE_UTF8);
        while (statement.nextRow()) {
            Row row;
            row.position.key = std::string(columnBytes(statement.get(), 0));
            row.bytes = std::string(columnBytes(statement.get(), 1));
            const int type = sqlite3_column_type(statement.get(), 2);
            if (type == SQLITE_INTEGER || type == SQLITE_FLOAT)
                row.position.order = sqlite3_column_double(statement.get(), 2);
            rows.push_back(std::move(row));
        }
    };
    if (!after) {
        run(queries_.firstPage, std::nullopt, "");
    } else if (after->order) {
        run(queries_.sameOrderAfter, after->order, after->key);
        run(queries_.orderBelow, after->order, "");
        run(queries_.unorderedAfter, std::nullopt, "");
    } else {
        run(queries_.unorderedAfter, std::nullopt, after->key);
    }
    return rows;
}

StoreRecordIndex::Counts StoreRecordIndex::counts(UserDefaults& store) const
{
    std::lock_guard lock(store.mutex_);
    auto statement = store.connection_->read(queries_.counts);
    Counts counts;
    if (statement.nextRow()) {
        counts.total = static_cast<std::uint64_t>(sqlite3_column_int64(statement.get(), 0));
        counts.unflagged = static_cast<std::uint64_t>(sqlite3_column_int64(statement.get(), 1));
    }
    return counts;
}

StoreRecordIndex::Glance StoreRecordIndex::glance(UserDefaults& store, std::size_t limit) const
{
    std::lock_guard lock(store.mutex_);
    Snapshot snapshot(store.connection_->database());
    Glance glance;
    glance.counts = counts(store);
    glance.first = page(store, limit, std::nullopt);
    return glance;
}

std::uint64_t StoreRecordIndex::unflaggedCount(UserDefaults& store) const
{
    std::lock_guard lock(store.mutex_);
    return countOf(*store.connection_, queries_.unflagged);
}

bool StoreRecordIndex::rewriteUnflagged(UserDefaults& store,
                                        const std::function<std::string(std::string_view)>& rewrite) const
{
    return store.performExclusively([&] {
        std::vector<std::pair<std::string, std::string>> rewritten;
        {
            auto statement = store.connection_->read(queries_.unflaggedRows);
            while (statement.nextRow()) {
                rewritten.emplace_back(columnBytes(statement.get(), 0), rewrite(columnBytes(statement.get(), 1)));
            }
        }
        for (const auto& [key, bytes] : rewritten) {
            if (!store.setData(bytes, key)) return;
        }
    });
}

std::string StoreRecordIndex::queryPlan(UserDefaults& store, const std::string& sql)
{
    std::lock_guard lock(store.mutex_);
    std::string plan;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(store.connection_->database(), ("EXPLAIN QUERY PLAN " + sql).c_str(), -1, &statement,
                           nullptr) != SQLITE_OK) {
        return "error: " + std::string(sqlite3_errmsg(store.connection_->database()));
    }
    while (sqlite3_step(statement) == SQLITE_ROW) {
        if (const auto* detail = sqlite3_column_text(statement, 3)) plan += reinterpret_cast<const char*>(detail);
        plan += '\n';
    }
    sqlite3_finalize(statement);
    return plan;
}

} // namespace fexo
