#include <FeXOPlatform/ReadTracingFileSystem.hpp>

#include <FeXOPlatform/StoreFileSystem.hpp>

#include <sqlite3.h>

namespace fexo {

namespace {

thread_local std::optional<ReadTracingFileSystem::Read> lastReadOfThread;

// The open file SQLite sees: ours, with the wrapped file's state right behind it.
struct TracedFile {
    sqlite3_file base;
    sqlite3_file* wrapped;
};

sqlite3_file* wrappedOf(sqlite3_file* file)
{
    return reinterpret_cast<TracedFile*>(file)->wrapped;
}

const sqlite3_io_methods* methodsOf(sqlite3_file* file)
{
    return wrappedOf(file)->pMethods;
}

int tracedClose(sqlite3_file* file)
{
    return methodsOf(file)->xClose(wrappedOf(file));
}

int tracedRead(sqlite3_file* file, void* buffer, int amount, sqlite3_int64 offset)
{
    lastReadOfThread = ReadTracingFileSystem::Read{file, offset};
    return methodsOf(file)->xRead(wrappedOf(file), buffer, amount, offset);
}

int tracedWrite(sqlite3_file* file, const void* buffer, int amount, sqlite3_int64 offset)
{
    return methodsOf(file)->xWrite(wrappedOf(file), buffer, amount, offset);
}

int tracedTruncate(sqlite3_file* file, sqlite3_int64 size)
{
    return methodsOf(file)->xTruncate(wrappedOf(file), size);
}

int tracedSync(sqlite3_file* file, int flags)
{
    return methodsOf(file)->xSync(wrappedOf(file), flags);
}

int tracedFileSize(sqlite3_file* file, sqlite3_int64* size)
{
    return methodsOf(file)->xFileSize(wrappedOf(file), size);
}

int tracedLock(sqlite3_file* file, int level)
{
    return methodsOf(file)->xLock(wrappedOf(file), level);
}

int tracedUnlock(sqlite3_file* file, int level)
{
    return methodsOf(file)->xUnlock(wrappedOf(file), level);
}

int tracedCheckReservedLock(sqlite3_file* file, int* reserved)
{
    return methodsOf(file)->xCheckReservedLock(wrappedOf(file), reserved);
}

int tracedFileControl(sqlite3_file* file, int operation, void* argument)
{
    return methodsOf(file)->xFileControl(wrappedOf(file), operation, argument);
}

int tracedSectorSize(sqlite3_file* file)
{
    return methodsOf(file)->xSectorSize(wrappedOf(file));
}

int tracedDeviceCharacteristics(sqlite3_file* file)
{
    return methodsOf(file)->xDeviceCharacteristics(wrappedOf(file));
}

int tracedShmMap(sqlite3_file* file, int region, int size, int extend, void volatile** memory)
{
    const auto* methods = methodsOf(file);
    if (methods->iVersion < 2 || methods->xShmMap == nullptr) return SQLITE_IOERR_SHMMAP;
    return methods->xShmMap(wrappedOf(file), region, size, extend, memory);
}

int tracedShmLock(sqlite3_file* file, int offset, int count, int flags)
{
    const auto* methods = methodsOf(file);
    if (methods->iVersion < 2 || methods->xShmLock == nullptr) return SQLITE_IOERR_SHMLOCK;
    return methods->xShmLock(wrappedOf(file), offset, count, flags);
}

void tracedShmBarrier(sqlite3_file* file)
{
    const auto* methods = methodsOf(file);
    if (methods->iVersion >= 2 && methods->xShmBarrier != nullptr) methods->xShmBarrier(wrappedOf(file));
}

int tracedShmUnmap(sqlite3_file* file, int deleteFlag)
{
    const auto* methods = methodsOf(file);
    if (methods->iVersion < 2 || methods->xShmUnmap == nullptr) return SQLITE_OK;
    return methods->xShmUnmap(wrappedOf(file), deleteFlag);
}

// Pages are never fetched from a memory map: each one is read, and so traced.
int tracedFetch(sqlite3_file*, sqlite3_int64, int, void** page)
{
    *page = nullptr;
    return SQLITE_OK;
}

int tracedUnfetch(sqlite3_file*, sqlite3_int64, void*)
{
    return SQLITE_OK;
}

const sqlite3_io_methods tracedMethods{
    3,
    tracedClose,
    tracedRead,
    tracedWrite,
    tracedTruncate,
    tracedSync,
    tracedFileSize,
    tracedLock,
    tracedUnlock,
    tracedCheckReservedLock,
    tracedFileControl,
    tracedSectorSize,
    tracedDeviceCharacteristics,
    tracedShmMap,
    tracedShmLock,
    tracedShmBarrier,
    tracedShmUnmap,
    tracedFetch,
    tracedUnfetch,
};

int tracedOpen(sqlite3_vfs* vfs, sqlite3_filename name, sqlite3_file* file, int flags, int* outFlags)
{
    auto* wrappedSystem = static_cast<sqlite3_vfs*>(vfs->pAppData);
    auto* traced = reinterpret_cast<TracedFile*>(file);
    traced->wrapped = reinterpret_cast<sqlite3_file*>(traced + 1);
    const int result = wrappedSystem->xOpen(wrappedSystem, name, traced->wrapped, flags, outFlags);
    // SQLite closes a file whose methods are set, even after a failed open.
    traced->base.pMethods = traced->wrapped->pMethods != nullptr ? &tracedMethods : nullptr;
    return result;
}

} // namespace

const char* ReadTracingFileSystem::name()
{
    static const char* const registered = [] {
        static sqlite3_vfs fileSystem{};
        sqlite3_vfs* store = sqlite3_vfs_find(storeFileSystemName());
        if (store == nullptr) return static_cast<const char*>(nullptr);
        // The other entries take the file system itself and ignore its application data; only
        // opening a file reaches through to the wrapped one.
        fileSystem = *store;
        fileSystem.pNext = nullptr;
        fileSystem.zName = "fexo-read-tracing";
        fileSystem.pAppData = store;
        fileSystem.szOsFile = static_cast<int>(sizeof(TracedFile)) + store->szOsFile;
        fileSystem.xOpen = tracedOpen;
        if (sqlite3_vfs_register(&fileSystem, 0) != SQLITE_OK) return static_cast<const char*>(nullptr);
        return fileSystem.zName;
    }();
    return registered;
}

void ReadTracingFileSystem::forget()
{
    lastReadOfThread.reset();
}

std::optional<ReadTracingFileSystem::Read> ReadTracingFileSystem::lastRead()
{
    return lastReadOfThread;
}

} // namespace fexo
