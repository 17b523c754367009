#pragma once

#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/UserDefaults.hpp>

#include <optional>
#include <string_view>
#include <vector>

namespace fexo {

// Whole records stored as JSON bytes under string keys of the app group's shared store. Key
// naming belongs to the caller. No operation reports an error: a store that cannot be opened or
// written, or a record that cannot be encoded or decoded, ends the process.
class FEXO_EXPORT DataStorage {
public:
    virtual ~DataStorage();

    // The opened store, opened on first use; the reference stays valid for this object's life.
    virtual UserDefaults& userDefaults() = 0;
    // Replaces whatever was stored under `key`; the record is on disk when this returns.
    virtual void save(const Response& response, std::string_view key) = 0;
    // The record under `key`; nothing when no value or a value of another kind is stored there.
    virtual std::optional<Response> load(std::string_view key) = 0;
    // The records under every key that begins with `keyPrefix`, in ascending key order, as one
    // snapshot: a key whose value vanished or is not data is left out. The default loads the
    // prefixed keys one by one; implementations may read them in one pass.
    virtual std::vector<Response> loadAll(std::string_view keyPrefix);
};

} // namespace fexo
