#pragma once

#include <cstddef>
#include <functional>
#include <string>

struct sqlite3;

namespace fexo {

// Finds every key of the store's table (a WITHOUT ROWID b-tree keyed by TEXT under BINARY
// collation) that SQLite can still reach in a database whose pages may be damaged.
//
// A key is reached by a seek from the root. A seek for a text (`key >= ?`) follows the one path
// of pages whose ranges hold that text: it fails when a page on the path is damaged, and
// otherwise lands on the true neighbours of the text. The texts whose seeks fail at one damaged
// page form one stretch of the key space (the page's range), and between two such stretches
// that belong to different pages lies a sound stretch or a key that separates them.
//
// The search reads forward from the first text and backward from the end of the table. Where a
// read fails it keeps the range of texts not yet known, with the page each of its ends failed
// at, and divides it at its middle (the texts read as base-256 fractions), breadth first: a seek
// there that fails at the page of one end moves that end; at another page, it splits the range;
// a seek that succeeds reads forward and backward until a read fails or the range is used up.
// A range whose ends failed at the same page holds no key that a seek reaches, and is dropped.
// Every stretch that some seek still crosses soundly is found this way, down to the limits
// below. A page is taken to fail as a whole, as a zeroed page or one that is no b-tree page
// does. A page whose bytes are garbled but still parse can let some reads through and mislead
// others (keys out of order are taken for a failure); keys behind it may then be missed.
//
// Which page a seek failed at is known when `database` was opened with ReadTracingFileSystem;
// otherwise each failure counts as a page of its own: ranges are then never dropped, only
// divided until the limits end the search.
class StoreKeySalvage {
public:
    struct Limits {
        // Seeks into ranges not yet read, each about one page read per level of the tree; the
        // reads forward and backward from a seek that succeeded add one step per key, and each
        // key is read once.
        std::size_t probes = 200000;
        // The memory of the ranges waiting in the queue, their bounds included.
        std::size_t pendingBytes = std::size_t{16} << 20;
        // The longest text probed: 64 bytes more than the longest key read so far, at least
        // `shortestLimit` and at most `pointLength`. A sound stretch holds a key no longer than
        // the texts needed to probe it; ranges that would need longer texts are left unread.
        std::size_t shortestLimit = 1024;
        std::size_t pointLength = 4096;
    };

    struct Outcome {
        std::size_t probes = 0;
        // A read of the table failed: part of it cannot be reached, and the keys there, if any,
        // are neither found nor counted.
        bool damaged = false;
    };

    // A key as SQLite holds it: a text, or, in a file this library did not write, another
    // storage class (a BLOB sorts after every text; the search finds those a read passes).
    struct Key {
        int type = 0;
        std::string bytes;
    };

    // Calls `found` once with each key reached, in no particular order, on the calling thread;
    // the search ends early when `found` returns false. `database` must hold a read transaction
    // across the call, so that the table stands still, and must not map the file into memory.
    static Outcome forEachKey(sqlite3* database, const std::function<bool(const Key&)>& found, Limits limits);
    static Outcome forEachKey(sqlite3* database, const std::function<bool(const Key&)>& found)
    {
        return forEachKey(database, found, Limits{});
    }
};

} // namespace fexo
