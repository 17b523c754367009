#pragma once

#include <string>

namespace fexo::tool {

// Whether `host` (a name or an address, IPv6 with or without brackets) names this machine only:
// "localhost", 127.0.0.0/8, ::1 or an IPv4-mapped loopback address.
bool isLoopbackHost(std::string host);

} // namespace fexo::tool
