#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/PropertyListValue.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fexo {

class StoreConnection;
class StoreChangeSignal;
class StoreRecordIndex;

// A persistent key/value store shared by every process of one app group: the suite
// `<root>/<suite>/defaults.sqlite`, where root is $FEXO_APP_GROUPS_DIR, else
// $XDG_DATA_HOME/fexo/app-groups, else ~/.local/share/fexo/app-groups (the environment is read
// at each open). Beneath the suite's own values lies an in-memory registration domain that
// registerDefaults() fills and that is never written to disk.
//
// Durability: every change is its own transaction, committed before the call returns; a change
// that returned survives a crash or SIGKILL of this or any other process using the suite.
// Processes never lose each other's changes; a read followed by a write that must not be
// interleaved with other writers goes through performExclusively().
//
// Failures: readers tell absence from failure. A read that cannot be completed (a damaged file,
// a lock that other processes hold past about half a minute) ends the process with a message
// naming the database file; it never reads as an absent key or a shorter store. Writers report
// failure as false and change nothing.
//
// Observers: after each commit that changed the suite, the committing process touches a small
// file beside the database (see StoreChangeSignal), which observers in any process watch.
//
// Threads: an object may be used from any number of threads at once; calls are serialised on
// the object's one connection. Do not carry an object across fork(): the child opens its own.
class FEXO_EXPORT UserDefaults {
public:
    // The suite's store, created on first use with folders 0700 and files 0600; nothing when the
    // name is empty, ".", "..", contains '/' or NUL, the suite's folder or files are symbolic links,
    // or the store cannot be created or opened. The root and its ancestors may be links.
    static std::shared_ptr<UserDefaults> open(std::string_view suiteName);
    // The same; when nothing is opened, `whyNot` names the path that failed and the system's
    // reason ("<path>: Permission denied").
    static std::shared_ptr<UserDefaults> open(std::string_view suiteName, std::string& whyNot);
    // Why open() would fail now, found without creating or changing anything: the same name,
    // path and link rules; an existing store is opened read-only and read; where the suite's
    // folder or store does not exist yet, the nearest existing folder must take new entries
    // (which tells a read-only file system even to root). Nothing when open() would succeed, as
    // far as can be told beforehand (a file system that fills meanwhile still makes it fail).
    static std::optional<std::string> whyNotOpenable(std::string_view suiteName);
    // The folder that holds the suite's files, by the environment as it stands now (links in the
    // root not resolved); nothing for a name that cannot be a suite.
    static std::optional<std::filesystem::path> containerPath(std::string_view suiteName);

    ~UserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    const std::string& suiteName() const { return suiteName_; }
    // The database file, under the root's resolved path.
    const std::filesystem::path& databasePath() const { return databasePath_; }

    // Writers replace whatever the suite held under `key`. They return false only when the
    // store could not be written (disk full, read-only file, lock held by other processes for about half a minute);
    // nothing is changed then.
    bool setObject(const PropertyListValue& value, std::string_view key);
    bool setData(std::string_view bytes, std::string_view key);
    // Removing an absent key succeeds and changes nothing. The registration domain is untouched.
    bool removeObjectForKey(std::string_view key);
    // SQLite's words for why the latest writer (or performExclusively) that returned false failed.
    std::string lastWriteFailure() const;

    // The suite's value, else the registered default, else nothing.
    std::optional<PropertyListValue> object(std::string_view key) const;
    // The bytes of a data value under `key`; nothing for an absent key or a value of another kind.
    std::optional<std::string> dataForKey(std::string_view key) const;

    // Every key/value of the suite laid over the registration domain, read as one snapshot.
    PropertyListValue::Dictionary dictionaryRepresentation() const;

    // The suite's keys that begin with `prefix` (case-sensitive, byte-wise), in ascending byte
    // order, read as one snapshot by a range scan. The registration domain is not consulted.
    std::vector<std::string> keysWithPrefix(std::string_view prefix) const;
    // Like keysWithPrefix(), with the bytes of each data value; keys holding another kind of
    // value are left out.
    std::vector<std::pair<std::string, std::string>> dataWithKeyPrefix(std::string_view prefix) const;

    // Adds values to the registration domain of this object only (not other objects or processes).
    void registerDefaults(const PropertyListValue::Dictionary& defaults);

    // Runs `body` as one write transaction that no other writer, in this or another process, can
    // interleave with: what body reads stays true until its writes commit. Calls on this object
    // from within body (same thread) join the transaction; other threads wait. Returns true when
    // the transaction committed. When body throws, nothing of it is kept and the exception
    // propagates. A writer inside body that fails makes the whole transaction roll back.
    bool performExclusively(const std::function<void()>& body);

private:
    // Record indexes run their own queries on the connection, under the object's mutex.
    friend class StoreRecordIndex;

    UserDefaults(std::string suiteName, std::filesystem::path databasePath,
                 std::unique_ptr<StoreConnection> connection);

    std::string suiteName_;
    std::filesystem::path databasePath_;
    mutable std::recursive_mutex mutex_;
    // Raised after every commit of this object that changed the suite; outlives the connection.
    std::unique_ptr<StoreChangeSignal> changeSignal_;
    std::unique_ptr<StoreConnection> connection_;
    PropertyListValue::Dictionary registered_;
};

} // namespace fexo
