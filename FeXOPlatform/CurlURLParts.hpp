#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>

namespace fexo {

// Internal. libcurl's URL parser with owned handles, the one judge of what is a URL for URL,
// URLOrigin and the session alike.
struct CurlURLHandleDeleter {
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using CurlURLHandle = std::unique_ptr<CURLU, CurlURLHandleDeleter>;

// `text` parsed as an absolute URL of any scheme; null when the parser refuses it (or cannot
// allocate).
CurlURLHandle parseCurlURL(const std::string& text);

// One part of a parsed URL as curl gives it (`flags` as for curl_url_get), or nothing when the
// URL has no such part.
std::optional<std::string> curlURLPart(CURLU* handle, CURLUPart which, unsigned int flags = 0);

} // namespace fexo
