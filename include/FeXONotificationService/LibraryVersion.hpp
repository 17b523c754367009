#pragma once

#include <FeXONotificationService/fexo_version.h>
#include <FeXOPlatform/Export.hpp>

#include <string_view>

namespace fexo {

/// The version of the library loaded at run time, "MAJOR.MINOR.PATCH". FEXO_VERSION_STRING
/// (and FEXO_VERSION_MAJOR, _MINOR, _PATCH) give the version of the headers compiled against;
/// a program may run against a later library of the same major version (the same SONAME).
/// The view stays valid for the life of the process. Same text as fexo_version().
FEXO_EXPORT std::string_view libraryVersion() noexcept;

} // namespace fexo
