#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/URL.hpp>
#include <FeXOPlatform/URLRequest.hpp>

#include <optional>
#include <string>

namespace fexo {

// The status line and header fields of the final answer of a transfer (after redirects).
class FEXO_EXPORT HTTPURLResponse {
public:
    HTTPURLResponse(URL url, int statusCode, HTTPHeaderFields headerFields);

    // The URL that answered, which differs from the request's after a redirect.
    const URL& url() const { return url_; }
    int statusCode() const { return statusCode_; }
    // In arrival order; repeated fields are joined into one, their values separated by ", ".
    const HTTPHeaderFields& allHeaderFields() const { return headerFields_; }
    // Case-insensitive lookup.
    std::optional<std::string> value(const std::string& headerField) const;

private:
    URL url_;
    int statusCode_;
    HTTPHeaderFields headerFields_;
};

} // namespace fexo
