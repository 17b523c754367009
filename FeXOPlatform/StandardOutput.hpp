#pragma once

#include <FeXOPlatform/Export.hpp>

#include <string_view>

namespace fexo {

// Prints one diagnostic line to standard output: the text and a line feed, in a single
// write so that lines from different threads or processes never interleave.
FEXO_EXPORT void printLine(std::string_view text);

} // namespace fexo
