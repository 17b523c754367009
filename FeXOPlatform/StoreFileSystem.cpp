#include <FeXOPlatform/StoreFileSystem.hpp>

#include <sqlite3.h>

#include <unistd.h>

namespace fexo {

namespace {

// A log that vanished between the check and the open is opened again as SQLite asked.
int openExistingLogPlainly(sqlite3_vfs* vfs, sqlite3_filename name, sqlite3_file* file, int flags, int* outFlags)
{
    auto* platform = static_cast<sqlite3_vfs*>(vfs->pAppData);
    if ((flags & SQLITE_OPEN_WAL) != 0 && (flags & SQLITE_OPEN_CREATE) != 0 && name != nullptr &&
        ::access(name, F_OK) == 0) {
        if (platform->xOpen(platform, name, file, flags & ~SQLITE_OPEN_CREATE, outFlags) == SQLITE_OK) return SQLITE_OK;
    }
    return platform->xOpen(platform, name, file, flags, outFlags);
}

} // namespace

const char* storeFileSystemName()
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

} // namespace fexo
