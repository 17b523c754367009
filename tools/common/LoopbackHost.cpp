#include <common/LoopbackHost.hpp>

#include <arpa/inet.h>

namespace fexo::tool {

bool isLoopbackHost(std::string host)
{
    if (host == "localhost") return true;
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    in_addr v4{};
    if (::inet_pton(AF_INET, host.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
    in6_addr v6{};
    if (::inet_pton(AF_INET6, host.c_str(), &v6) != 1) return false;
    if (IN6_IS_ADDR_LOOPBACK(&v6)) return true;
    return IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127;
}

} // namespace fexo::tool
