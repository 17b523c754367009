#pragma once

#include <FeXONotificationService/LibraryVersion.hpp>

#include <CLI/CLI.hpp>

#include <string>

namespace fexo::tool {

// Adds --version to the top level of `app`: it prints "<name> MAJOR.MINOR.PATCH" (the library's
// version, the project's one) and ends the parse with exit status 0 before any command is
// required or runs.
inline void addVersionFlag(CLI::App& app, const std::string& name)
{
    app.set_version_flag("--version", name + " " + std::string(fexo::libraryVersion()),
                         "Print the name and version, then exit");
}

} // namespace fexo::tool
