#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

struct sqlite3;

namespace fexo {

// Opening a store's database file and bringing it to the shape every connection expects.

struct StoreDatabaseCloser {
    void operator()(sqlite3* database) const;
};
using StoreDatabase = std::unique_ptr<sqlite3, StoreDatabaseCloser>;

// The file opened read-write, never created, never through a symbolic link, with the busy
// timeout set; nothing when it cannot be opened, and then `whyNot` names the file and the
// system's reason when given. Through the SQLite file system named `fileSystem`, else the
// store's own (storeFileSystemName).
StoreDatabase openStoreDatabase(const std::filesystem::path& path, std::string* whyNot = nullptr,
                                const char* fileSystem = nullptr);

// Brings an opened database to WAL mode, synchronous FULL, with the table in place. Converting
// to WAL needs every other connection gone, which is why new files are made ready before they
// are published.
bool configureStoreDatabase(sqlite3* database);

// Makes sure the database file exists, mode 0600, already configured, so that processes opening
// the suite at once never race to convert it. A new file is prepared under a private name and
// published with link(), which fails harmlessly when another process won. False when the path
// holds anything but a regular file, or the file cannot be made; `whyNot` then says why, naming
// the path.
bool publishStoreDatabase(const std::filesystem::path& path, std::string& whyNot);

// Why an existing store file could not be opened and read, found by opening it read-only and
// reading its schema (nothing is changed); nothing when it can.
std::optional<std::string> whyStoreCannotBeRead(const std::filesystem::path& path);

// SQLite's reason for the failure of the latest call on `database`, with the system's where it
// gave one ("<path>: Permission denied").
std::string storeFailure(sqlite3* database, const std::filesystem::path& path);

} // namespace fexo
