#pragma once

#include <FeXOPlatform/PropertyListValue.hpp>

#include <cstddef>
#include <optional>
#include <string>

namespace fexo {

// The five settings of "FeXOService-Info.plist", kept exactly as they stand in the file.
struct ServiceConfiguration {
    std::string baseURL;      // "FEXO_BASE_URL": prefix of every request URL
    std::string clientSecret; // "CLIENT_SECRET": the "client_secret" request header
    std::string clientId;     // "CLIENT_ID": the "client_id" request header
    std::string appGroup;     // "APP_GROUP": suite name of the shared store
    std::string bundleId;     // "BUNDLE_ID": the appId of a device registration
};

// The process's configuration. The first call loads "FeXOService-Info.plist" from the main
// bundle; concurrent first callers wait for that one load, later calls return the same record
// without touching the file.
//
// A missing or unreadable file, a top level that is not a dictionary, or one of the five keys
// absent, not a string or empty raises an NSException (name and reason fixed, the first
// failing key in file order decides). With the default raise hook the exception propagates
// and nothing is kept, so a later call loads again. When a raise hook returns, the load ends
// with a record of five empty strings, and that record is kept for the life of the process.
const ServiceConfiguration& sharedConfiguration();

// A configuration file larger than this is refused unread, as if it were not a property list
// (a real one holds five short strings, well under a few kilobytes).
inline constexpr std::size_t maximumConfigurationFileSize = 64 * 1024;

// The file-reading step of the load, raising nothing and keeping nothing: the content of the
// main bundle's "FeXOService-Info.plist", or nothing when the bundle has no such file, it cannot
// be read, holds more than maximumConfigurationFileSize bytes or is not a property list. The
// loader raises the file exception for nothing and for a top level that is not a dictionary.
// Reads the file anew on every call. Any thread.
std::optional<PropertyListValue> loadServiceConfigurationValues();

// Tests only: forgets the loaded record so that the next call loads again. Must not run while
// another thread uses the configuration; references handed out before stay valid.
void resetSharedConfigurationForTesting();

} // namespace fexo
