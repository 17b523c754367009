#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace fexo::tool {

// The whole content of FILE, or of standard input when the name is "-" or empty, read up to
// `limit` bytes: nothing when it cannot be read or is larger, after one line on standard error
// ("`what` is more than `limit` bytes", the limit written with thousands separators, for the latter). Memory stays within the limit.
std::optional<std::string> readInput(const std::string& name, std::size_t limit, const std::string& what);

} // namespace fexo::tool
