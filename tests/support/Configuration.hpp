#pragma once

#include <filesystem>
#include <string>

namespace fexo::test {

// The five settings, all valid unless a test changes them.
struct ConfigurationValues {
    std::string baseURL = "http://127.0.0.1:9";
    std::string clientSecret = "test-client-secret-0123";
    std::string clientId = "test-client-id";
    std::string appGroup = "group.test.fexo";
    std::string bundleId = "com.example.host";
};

// Writes "FeXOService-Info.plist" (XML) into `directory`, points the main bundle at it and
// forgets any configuration loaded before, so the next use loads this file.
// Callers that change one value name it: installConfiguration(directory, {.baseURL = url}).
void installConfiguration(const std::filesystem::path& directory, const ConfigurationValues& values = {});

// Writes "FeXOService-Info.plist" into `directory` with the Python writer (configuration_file.py
// beside this file, on plistlib), so that the reader is tested against files it did not write
// itself; `dictionary` is a Python expression. Throws std::runtime_error when Python fails.
// Points nothing at the file.
void writeConfigurationWithPython(const std::filesystem::path& directory, const std::string& dictionary, bool binary);

} // namespace fexo::test
