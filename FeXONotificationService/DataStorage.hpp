#pragma once

#include <FeXONotificationService/FeXOStoreError.hpp>
#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/Result.hpp>
#include <FeXOPlatform/UserDefaults.hpp>

#include <optional>
#include <string_view>
#include <vector>

namespace fexo {

// Whole records stored as JSON bytes under string keys of the app group's shared store. Key
// naming belongs to the caller. No operation reports an error. A store that cannot be opened or
// read, or a record that cannot be encoded or decoded, ends the process. A store that refuses a
// write (no space, no permission, a damaged file) costs only that change: see
// reportUnwrittenChange().
class DataStorage {
public:
    virtual ~DataStorage();

    // The opened store, opened on first use; the reference stays valid for this object's life.
    virtual UserDefaults& userDefaults() = 0;
    // Replaces whatever was stored under `key`; the record is on disk when this returns, unless
    // the store refused the write, which leaves the store as it was and is reported as below.
    virtual void save(const Response& response, std::string_view key);
    // The same, telling whether the store kept the record: failure with a FeXOStoreError after
    // the line of reportUnwrittenChange().
    virtual Result<void> saveChecked(const Response& response, std::string_view key) = 0;
    // The record under `key`; nothing when no value or a value of another kind is stored there.
    virtual std::optional<Response> load(std::string_view key) = 0;
    // The records under every key that begins with `keyPrefix`, in ascending key order, as one
    // snapshot: a key whose value vanished or is not data is left out. The default loads the
    // prefixed keys one by one; implementations may read them in one pass.
    virtual std::vector<Response> loadAll(std::string_view keyPrefix);
};

// Leaves one line on standard error saying that `store` refused a change and why, for a write
// that returned false, and gives that as the error to hand to whoever asks whether the change was
// kept. The caller goes on as if the change had not been asked for: a record the store cannot
// take must not cost the user the notification it came with. Standard output is kept for the
// fixed diagnostics.
FeXOStoreError reportUnwrittenChange(const UserDefaults& store);

} // namespace fexo
