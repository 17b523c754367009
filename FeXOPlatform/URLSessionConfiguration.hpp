#pragma once

#include <optional>
#include <string>

namespace fexo {

// Settings of a URLSession, fixed when the session is made. Peer certificates and host names
// are always verified; no setting turns that off.
struct URLSessionConfiguration {
    // A PEM file of certificate authorities to trust in place of the system's (a private or
    // test authority); empty: the system's authorities.
    std::optional<std::string> certificateAuthorityFile;
    // Connections kept open at once to one host; further transfers to it wait for one.
    long maximumConnectionsPerHost = 6;
};

} // namespace fexo
