#pragma once

#include <string>

namespace fexo::tool {

// What the tool shows of a client secret: enough to tell two apart, never enough to use it.
// "****" and the last four characters, and only when they are at most a third of the whole.
std::string maskedSecret(const std::string& secret);

} // namespace fexo::tool
