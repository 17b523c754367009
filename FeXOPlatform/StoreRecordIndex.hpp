#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fexo {

class UserDefaults;

// An index that SQLite keeps inside a suite's table over the JSON records stored as data values
// under one key prefix. A record counts only when its JSON holds, at one of the given member
// paths at least, a text that is not empty; the others (and bytes that are not JSON) stay in the
// table, writable and readable by key, but outside every page and count. The records that count
// are ordered by a numeric member, greatest first, ties by key ascending, those without the member
// after all others; and those whose boolean flag member is not true are counted apart. Nothing is
// kept beside the table.
//
// Three partial indexes: the order of every prefixed data value; the unflagged records that
// count, whole; and the prefixed data values that do not count, whole. SQLite 3.40 reads an index
// alone only when it holds every column a query names, so counts are made of these: the total is
// the order index's entries less those that do not count, which costs what there are of those.
//
// Every expression is guarded so that it accepts any bytes. Each query names its index, because
// the planner otherwise prefers the key range with a sort.
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
        std::string total;          // of the records that count
        std::string unflagged;
        std::string unflaggedRows;
        std::string counts; // total, unflagged
    };

    // `name` prefixes the index names; `keyPrefix` must be non-empty and have a byte below 0xFF;
    // the order and flag members are top-level names of the records' JSON objects; `textMembers`
    // are dotted member paths ("data.text") of which one at least must hold a text that is not
    // empty for a record to count.
    StoreRecordIndex(std::string_view name, std::string_view keyPrefix, std::string_view orderMember,
                     std::string_view flagMember, std::initializer_list<std::string_view> textMembers);

    // Creates the indexes where missing, and replaces one that another version made under the
    // same name (an older store's are rebuilt once so), each in one transaction, so that processes opening the same old store at once
    // build it once. False when the store refused the write (read-only, full, locked); a store
    // that cannot be read ends the process as reads do.
    bool ensure(UserDefaults& store) const;

    // Up to `limit` records strictly after `after` (from the start when nothing), in order, read
    // as one snapshot.
    std::vector<Row> page(UserDefaults& store, std::size_t limit, const std::optional<Position>& after) const;
    // Both counts (of the records that count) from one snapshot.
    Counts counts(UserDefaults& store) const;
    // The counts and the first `limit` records, read in one read transaction: both tell of the
    // same moment.
    struct Glance {
        Counts counts;
        std::vector<Row> first;
    };
    Glance glance(UserDefaults& store, std::size_t limit) const;
    std::uint64_t unflaggedCount(UserDefaults& store) const;
    // One write transaction: each record whose flag is not true is handed to `rewrite`, and the
    // bytes it returns replace it under the same key. False when the transaction did not commit
    // (see UserDefaults::lastWriteFailure()).
    bool rewriteUnflagged(UserDefaults& store, const std::function<std::string(std::string_view)>& rewrite) const;

    const Queries& queries() const { return queries_; }
    const std::string& orderIndexName() const { return orderIndex_; }
    // The statements that make the indexes, for a table of the store's layout made elsewhere.
    std::string creationStatements() const
    {
        return "CREATE INDEX " + orderDefinition_ + "; CREATE INDEX " + flagDefinition_ + "; CREATE INDEX " +
               uncountedDefinition_;
    }
    const std::string& flagIndexName() const { return flagIndex_; }
    // SQLite's plan for `sql` (the details of EXPLAIN QUERY PLAN, one per line).
    static std::string queryPlan(UserDefaults& store, const std::string& sql);

private:
    std::string orderIndex_;
    std::string flagIndex_;
    std::string uncountedIndex_;
    std::string orderDefinition_; // each as "<name> ON defaults ..."
    std::string flagDefinition_;
    std::string uncountedDefinition_;
    Queries queries_;
};

} // namespace fexo
