#pragma once

#include <FeXOPlatform/Export.hpp>

#include <string>

namespace fexo {

// What the library would make of "FeXOService-Info.plist" if it loaded the file now, told as a
// value instead of raised: for a host's own diagnostics, installers and tools.
//
// run() looks the file up in the main bundle and reads it exactly as the library's own loading
// does (same file, same five keys in the same order, same rules for a value that counts as
// missing), but it never raises, keeps nothing and changes nothing: the library's own
// configuration is still loaded once, on its first use, and raises as before. Every call reads
// the file again. Any thread.
struct FEXO_EXPORT FeXOConfigurationCheck {
    // Empty when the file loads; otherwise the name and reason of the exception the library
    // would raise (the first failing key in file order decides), and the five values are empty.
    std::string exceptionName;
    std::string exceptionReason;

    std::string baseURL;      // "FEXO_BASE_URL"
    std::string clientSecret; // "CLIENT_SECRET": a credential; show it masked, if at all
    std::string clientId;     // "CLIENT_ID"
    std::string appGroup;     // "APP_GROUP"
    std::string bundleId;     // "BUNDLE_ID"

    bool isValid() const { return exceptionName.empty(); }

    static FeXOConfigurationCheck run();

    // The values the library itself uses in this process: the first use loads the configuration
    // exactly as a request or a store access would, raising as they do (an NSException, through
    // the raise hook); later calls read nothing. Never an exception name here: a failed load
    // raises instead. Any thread.
    static FeXOConfigurationCheck loaded();
};

} // namespace fexo
