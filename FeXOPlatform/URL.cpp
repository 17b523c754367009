#include <FeXOPlatform/URL.hpp>

#include <curl/curl.h>

#include <memory>
#include <utility>

namespace fexo {

namespace {

struct UrlHandleDeleter {
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};

struct CurlTextDeleter {
    void operator()(char* text) const { curl_free(text); }
};

std::optional<std::string> part(CURLU* handle, CURLUPart which)
{
    char* raw = nullptr;
    if (curl_url_get(handle, which, &raw, 0) != CURLUE_OK || raw == nullptr) return std::nullopt;
    std::unique_ptr<char, CurlTextDeleter> owned(raw);
    return std::string(owned.get());
}

} // namespace

URL::URL(std::string text, std::string scheme, std::string host)
    : text_(std::move(text)), scheme_(std::move(scheme)), host_(std::move(host))
{
}

std::optional<URL> URL::fromString(std::string text)
{
    // The parser stops at a NUL; a text with one inside is not what it would have parsed.
    if (text.empty() || text.find('\0') != std::string::npos) return std::nullopt;
    std::unique_ptr<CURLU, UrlHandleDeleter> handle(curl_url());
    if (!handle) return std::nullopt;
    // Any scheme is a URL; whether it can be loaded is the session's question.
    if (curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
        return std::nullopt;
    auto scheme = part(handle.get(), CURLUPART_SCHEME);
    auto host = part(handle.get(), CURLUPART_HOST);
    if (!scheme || !host || host->empty()) return std::nullopt;
    return URL(std::move(text), std::move(*scheme), std::move(*host));
}

} // namespace fexo
