#pragma once

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

class NSException;

// What loading makes of the main bundle's "FeXOService-Info.plist", raising nothing and keeping
// nothing: the five values, or the exception the load raises (the file's, when the bundle has
// no such file or it cannot be read, holds more than maximumConfigurationFileSize bytes, is not
// a property list or not a dictionary; else the first failing key's, in file order). The load
// and the public configuration check both decide through this one function. Reads the file
// anew on every call. Any thread.
struct ServiceConfigurationReading {
    ServiceConfiguration values;            // complete when `exception` is null
    const NSException* exception = nullptr; // one of the process's kept exception objects
};
ServiceConfigurationReading readServiceConfiguration();

// Tests only: forgets the loaded record so that the next call loads again. Must not run while
// another thread uses the configuration; references handed out before stay valid.
void resetSharedConfigurationForTesting();

} // namespace fexo
