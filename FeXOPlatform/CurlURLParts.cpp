#include <FeXOPlatform/CurlURLParts.hpp>

namespace fexo {

namespace {

struct CurlTextDeleter {
    void operator()(char* text) const { curl_free(text); }
};

} // namespace

CurlURLHandle parseCurlURL(const std::string& text)
{
    CurlURLHandle handle(curl_url());
    if (!handle || curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
        return nullptr;
    return handle;
}

std::optional<std::string> curlURLPart(CURLU* handle, CURLUPart which, unsigned int flags)
{
    char* raw = nullptr;
    if (curl_url_get(handle, which, &raw, flags) != CURLUE_OK || raw == nullptr) return std::nullopt;
    std::unique_ptr<char, CurlTextDeleter> owned(raw);
    return std::string(owned.get());
}

} // namespace fexo
