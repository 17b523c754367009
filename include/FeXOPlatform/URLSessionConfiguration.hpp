#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace fexo {

// Settings of a URLSession. A session of its own takes them when it is made; the shared
// session takes them from URLSession::setSharedConfiguration before its first task starts.
// Peer certificates and host names are always verified; no setting turns that off.
struct URLSessionConfiguration {
    // A PEM file of certificate authorities to trust in place of the system's (a private or
    // test authority); empty: the file named by SSL_CERT_FILE, else the system's. The directory
    // named by SSL_CERT_DIR replaces the system's directory either way. The environment is read
    // once per process, at its first transfer.
    std::optional<std::string> certificateAuthorityFile;
    // Connections kept open at once to one host; further transfers to it wait for one.
    long maximumConnectionsPerHost = 6;
    // Bytes of one answer's body after content decoding (gzip, deflate, br). An answer whose
    // body grows past it fails with URLError::dataLengthExceedsMaximum (-1103) and the rest is
    // not read. The body of a redirect that is followed counts for its own hop only.
    std::size_t maximumBodyLength = std::size_t{1} << 20;
    // Seconds a task may take in all, from resume() to its answer's last byte, redirects
    // included; past it the task fails with URLError::timedOut (-1001) however busy the line
    // is. The request's timeoutInterval still ends a task that falls silent sooner. Values of
    // zero or less, or too large to represent, mean the default.
    double timeoutIntervalForResource = defaultTimeoutIntervalForResource;

    static constexpr double defaultTimeoutIntervalForResource = 7 * 24 * 60 * 60.0;
};

} // namespace fexo
