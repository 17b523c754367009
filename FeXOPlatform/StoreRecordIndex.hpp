#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fexo {

class UserDefaults;

// An index that SQLite keeps inside a suite's table over the JSON records stored as data values
// under one key prefix: records ordered by a numeric member, greatest first, ties by key
// ascending, records without the member (or not JSON at all) after all others; and the records
// whose boolean flag member is not true. The set of records stays exactly the set of prefixed
// data keys present; nothing is kept beside the table.
//
// Every expression is guarded so that it accepts any bytes: a prefixed key holding bytes that
// are not JSON stays writable and simply sorts with the records that lack the member. Each
// query names its index, because the planner otherwise prefers the key range with a sort.
//
// Reads follow UserDefaults' rules (a read that cannot be completed ends the process). Any
// thread: every call runs under the suite object's lock.
class StoreRecordIndex {
public:
    // A record's place in the order: its member's value (nothing when it has none) and its key.
    struct Position {
        std::optional<double> order;
        std::string key;
        bool operator==(const Position&) const = default;
    };
    struct Row {
        Position position;
        std::string bytes;
    };
    struct Counts {
        std::uint64_t total = 0;
        std::uint64_t unflagged = 0;
    };
    // The SQL of each query, as run (for benchmarks and plan checks).
    struct Queries {
        std::string firstPage;      // ?1 limit
        std::string sameOrderAfter; // ?1 limit, ?2 order, ?3 key
        std::string orderBelow;     // ?1 limit, ?2 order
        std::string unorderedAfter; // ?1 limit, ?3 key
        std::string total;
        std::string unflagged;
        std::string unflaggedRows;
        std::string counts; // total, unflagged
    };

    // `name` prefixes the two index names; `keyPrefix` must be non-empty and have a byte below
    // 0xFF; the members are top-level names of the records' JSON objects.
    StoreRecordIndex(std::string_view name, std::string_view keyPrefix, std::string_view orderMember,
                     std::string_view flagMember);

    // Creates the indexes where missing, and replaces one that another version made under the
    // same name, each in one transaction, so that processes opening the same old store at once
    // build it once. False when the store refused the write (read-only, full, locked); a store
    // that cannot be read ends the process as reads do.
    bool ensure(UserDefaults& store) const;

    // Up to `limit` records strictly after `after` (from the start when nothing), in order, read
    // as one snapshot.
    std::vector<Row> page(UserDefaults& store, std::size_t limit, const std::optional<Position>& after) const;
    // Both counts from one snapshot.
    Counts counts(UserDefaults& store) const;
    std::uint64_t unflaggedCount(UserDefaults& store) const;
    // One write transaction: each record whose flag is not true is handed to `rewrite`, and the
    // bytes it returns replace it under the same key. False when the transaction did not commit
    // (see UserDefaults::lastWriteFailure()).
    bool rewriteUnflagged(UserDefaults& store, const std::function<std::string(std::string_view)>& rewrite) const;

    const Queries& queries() const { return queries_; }
    const std::string& orderIndexName() const { return orderIndex_; }
    // The statements that make both indexes, for a table of the store's layout made elsewhere.
    std::string creationStatements() const
    {
        return "CREATE INDEX " + orderDefinition_ + "; CREATE INDEX " + flagDefinition_;
    }
    const std::string& flagIndexName() const { return flagIndex_; }
    // SQLite's plan for `sql` (the details of EXPLAIN QUERY PLAN, one per line).
    static std::string queryPlan(UserDefaults& store, const std::string& sql);

private:
    std::string orderIndex_;
    std::string flagIndex_;
    std::string orderDefinition_; // each as "<name> ON defaults ..."
    std::string flagDefinition_;
    Queries queries_;
};

} // namespace fexo
