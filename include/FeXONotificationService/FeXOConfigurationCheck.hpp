#pragma once

#include <FeXOPlatform/Export.hpp>

#include <filesystem>
#include <string>

namespace fexo {

// What the library would make of "FeXOService-Info.plist" and the store it names, if it used them
// now, told as a value instead of raised or ended on: for a host's own diagnostics, installers
// and tools.
//
// run() looks the file up in the main bundle and reads it exactly as the library's own loading
// does (same file, same five keys in the same order, same rules for a value that counts as
// missing). Then it checks what would later end the process: the base URL must form a URL with
// the endpoints' paths, with the scheme http or https; the app group must be a usable name; and
// the store must be one the library can open or make, by the library's path and link rules. It
// never raises, keeps nothing and creates or changes nothing: an existing store is opened
// read-only, and where none exists yet the nearest existing folder must take new entries. The
// library's own configuration is still loaded once, on its first use, and raises as before.
// Every call reads the file again. Any thread.
struct FEXO_EXPORT FeXOConfigurationCheck {
    // Empty when everything checks out. When the library would raise: the name and reason of its
    // exception (the first failing key in file order decides), and the five values are empty.
    // When one of the checks that follow fails: no name, the check's own reason, and the five
    // values as read.
    std::string exceptionName;
    std::string exceptionReason;

    std::string baseURL;      // "FEXO_BASE_URL"
    std::string clientSecret; // "CLIENT_SECRET": a credential; show it masked, if at all
    std::string clientId;     // "CLIENT_ID"
    std::string appGroup;     // "APP_GROUP"
    std::string bundleId;     // "BUNDLE_ID"

    // Where the file was looked for: the main bundle's resources directory (see Bundle).
    std::filesystem::path resourcesDirectory;
    // True when what failed is the store itself (it cannot be opened or made), not a value.
    bool storeUnavailable = false;

    // What run() checks beyond the file and its five keys, which it always reads.
    enum Parts : unsigned {
        server = 1u, // the base URL: what a registration or a push's request needs
        store = 2u,  // the app group's name and store: what every store operation needs
        everything = server | store,
    };

    bool isValid() const { return exceptionName.empty() && exceptionReason.empty(); }

    // For a file that is missing or cannot be read (the library's NSGenericException), where it
    // was looked for: " (FeXOService-Info.plist was looked for in <folder>; set
    // FEXO_RESOURCES_DIR to look elsewhere)"; else empty.
    std::string searchNote() const;
    // What is wrong, in one line for people: "<name>: <reason>" and the search note for the
    // exception the library raises, the bare reason for a check of its own; empty when valid.
    std::string problem() const;

    static FeXOConfigurationCheck run(unsigned parts = everything);

    // The check that tells an exception the library raised while loading the configuration,
    // with the folder where the file was looked for.
    static FeXOConfigurationCheck raised(const std::string& exceptionName, const std::string& exceptionReason);

    // The values the library itself uses in this process: the first use loads the configuration
    // exactly as a request or a store access would, raising as they do (an NSException, through
    // the raise hook); later calls read nothing. Checks nothing beyond that load. Any thread.
    static FeXOConfigurationCheck loaded();
};

} // namespace fexo
