#pragma once

#include <cstdint>
#include <optional>

namespace fexo {

// A SQLite file system for a connection that must tell which page a failing read stopped at: the
// store's own file system (storeFileSystemName), which also notes, per thread, the last read
// made through it: which open file, at which offset. A page SQLite cannot use is the last one it
// read, provided it was not already in the connection's cache (sqlite3_db_release_memory empties
// the cache of every page no statement holds).
class ReadTracingFileSystem {
public:
    struct Read {
        const void* file = nullptr;
        std::int64_t offset = 0;
        bool operator==(const Read&) const = default;
    };

    // The name to open a connection with; registered once per process on first call. Nothing
    // when registration failed.
    static const char* name();

    // Forgets the calling thread's last read.
    static void forget();
    // The calling thread's last read through this file system since forget(), if any.
    static std::optional<Read> lastRead();
};

} // namespace fexo
