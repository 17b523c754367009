#pragma once

#include <optional>
#include <string>

namespace fexo {

// Internal. The origin of an absolute URL as libcurl's URL parser reads it: scheme and host
// in lower case, and the port, the scheme's default when the URL names none. Two URLs share
// an origin when all three are equal ("http://H:80/a" and "http://h/b" do).
struct URLOrigin {
    std::string scheme;
    std::string host;
    std::string port;

    // Nothing when the text is not an absolute URL with a host.
    static std::optional<URLOrigin> of(const std::string& url);

    // "scheme://host:port", one text per origin.
    std::string key() const { return scheme + "://" + host + ":" + port; }

    friend bool operator==(const URLOrigin&, const URLOrigin&) = default;
};

} // namespace fexo
