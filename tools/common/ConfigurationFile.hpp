#pragma once

#include <filesystem>
#include <string>

namespace fexo::tool {

// The five settings of the library's configuration file.
struct ConfigurationSettings {
    std::string baseURL;      // FEXO_BASE_URL
    std::string clientSecret; // CLIENT_SECRET
    std::string clientId;     // CLIENT_ID
    std::string appGroup;     // APP_GROUP
    std::string bundleId;     // BUNDLE_ID
};

// Writes "FeXOService-Info.plist" into `directory` (made when missing), replacing any file of
// that name: the five settings as the strings of an XML property list, in the order above,
// escaped as XML. False when a setting holds text that such a file cannot carry (invalid UTF-8
// or a control character; nothing is written then) or when the file cannot be written. The
// one writer of this file in C++: the demo, the tests and the benchmarks all write it here.
bool writeConfigurationFile(const std::filesystem::path& directory, const ConfigurationSettings& settings);

} // namespace fexo::tool
