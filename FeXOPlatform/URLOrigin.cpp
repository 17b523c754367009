#include <FeXOPlatform/URLOrigin.hpp>

#include <curl/curl.h>

#include <algorithm>
#include <memory>

namespace fexo {

namespace {

struct UrlHandleDeleter {
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};

struct CurlTextDeleter {
    void operator()(char* text) const { curl_free(text); }
};

std::optional<std::string> part(CURLU* handle, CURLUPart which, unsigned int flags)
{
    char* raw = nullptr;
    if (curl_url_get(handle, which, &raw, flags) != CURLUE_OK || raw == nullptr) return std::nullopt;
    std::unique_ptr<char, CurlTextDeleter> owned(raw);
    std::string text(owned.get());
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : static_cast<char>(c); });
    return text;
}

} // namespace

std::optional<URLOrigin> URLOrigin::of(const std::string& url)
{
    std::unique_ptr<CURLU, UrlHandleDeleter> handle(curl_url());
    if (!handle || curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
        return std::nullopt;
    auto scheme = part(handle.get(), CURLUPART_SCHEME, 0);
    auto host = part(handle.get(), CURLUPART_HOST, 0);
    // A scheme curl does not know has no default port: the URL's own, or none.
    auto port = part(handle.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
    if (!scheme || !host || host->empty()) return std::nullopt;
    return URLOrigin{std::move(*scheme), std::move(*host), port.value_or("")};
}

} // namespace fexo
