#pragma once

#include <FeXOPlatform/Export.hpp>

#include <string_view>

namespace fexo {

// Ends the process for a contract violation of the embedding application: prints
// "Fatal error: <message>" as one line to standard error, then aborts. Never returns.
[[noreturn]] FEXO_EXPORT void fatalError(std::string_view message);

} // namespace fexo
