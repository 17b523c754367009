#pragma once

#include <CLI/CLI.hpp>

#include <chrono>
#include <string>

namespace fexo::tool {

// Adds the option `name` to `command`, a number of seconds into `seconds`: any finite number
// above zero, however large. Anything else (zero, a negative number, nan, inf, a text) is a
// usage error.
CLI::Option* addTimeLimitOption(CLI::App& command, const std::string& name, double& seconds,
                                const std::string& description);

// `seconds` as a duration that a deadline counted from now can hold: limits beyond a century
// wait a century.
std::chrono::milliseconds timeLimitDuration(double seconds);

} // namespace fexo::tool
