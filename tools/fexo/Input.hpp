#pragma once

#include <optional>
#include <string>

namespace fexo::tool {

// The whole content of FILE, or of standard input when the name is "-" or empty; nothing when
// it cannot be read (the reason is printed to standard error).
std::optional<std::string> readInput(const std::string& name);

} // namespace fexo::tool
