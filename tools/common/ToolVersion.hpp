#pragma once

#include <FeXONotificationService/fexo_version.h>

#include <CLI/CLI.hpp>

#include <string>

namespace fexo::tool {

// Adds --version to the top level of `app`: it prints "<name> MAJOR.MINOR.PATCH" (the build's one
// version) and ends the parse with exit status 0 before any command is required or runs.
inline void addVersionFlag(CLI::App& app, const std::string& name)
{
    app.set_version_flag("--version", name + " " + FEXO_VERSION_STRING, "Print the name and version, then exit");
}

} // namespace fexo::tool
