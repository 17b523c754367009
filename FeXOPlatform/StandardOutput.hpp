#pragma once

#include <FeXOPlatform/Export.hpp>

#include <string_view>

namespace fexo {

// Prints one diagnostic line to standard output: the text and a line feed, in a single
// write so that lines from different threads or processes never interleave. A diagnostic may
// quote text from outside (the keys of a push that failed to decode), so it stays one line and
// never drives a terminal: control characters (C0, DEL and, as UTF-8, C1) are written as \xHH
// escapes of their bytes. The library's fixed texts hold none and print as they stand.
void printLine(std::string_view text);

// The same on standard error, for what goes wrong beside the fixed diagnostics (a change the
// store refused, the cause of a fatal error).
void printErrorLine(std::string_view text);

} // namespace fexo
