#include <FeXOPlatform/URLOrigin.hpp>

#include <FeXOPlatform/CurlURLParts.hpp>

#include <algorithm>

namespace fexo {

namespace {

std::optional<std::string> lowerCasePart(CURLU* handle, CURLUPart which, unsigned int flags)
{
    auto text = curlURLPart(handle, which, flags);
    if (text) {
        std::transform(text->begin(), text->end(), text->begin(), [](unsigned char c) {
            return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : static_cast<char>(c);
        });
    }
    return text;
}

} // namespace

std::optional<URLOrigin> URLOrigin::of(const std::string& url)
{
    const auto handle = parseCurlURL(url);
    if (!handle) return std::nullopt;
    auto scheme = lowerCasePart(handle.get(), CURLUPART_SCHEME, 0);
    auto host = lowerCasePart(handle.get(), CURLUPART_HOST, 0);
    // A scheme curl does not know has no default port: the URL's own, or none.
    auto port = lowerCasePart(handle.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
    if (!scheme || !host || host->empty()) return std::nullopt;
    return URLOrigin{std::move(*scheme), std::move(*host), port.value_or("")};
}

} // namespace fexo
