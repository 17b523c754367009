#pragma once

namespace fexo {

// The name of the SQLite file system that store connections open with: the platform's own,
// except that a write-ahead log that already exists is opened without "create". SQLite syncs
// the directory of a file it created on that file's first sync, even when the log was there long
// before; since connections leave the log in place, nearly every short-lived process would pay
// that extra flush. Registered once per process on first call; nothing when registration failed
// (SQLite then uses its default).
const char* storeFileSystemName();

} // namespace fexo
