#include <FeXOPlatform/URL.hpp>

#include <FeXOPlatform/CurlURLParts.hpp>

#include <utility>

namespace fexo {

URL::URL(std::string text, std::string scheme, std::string host)
    : text_(std::move(text)), scheme_(std::move(scheme)), host_(std::move(host))
{
}

std::optional<URL> URL::fromString(std::string text)
{
    // The parser stops at a NUL; a text with one inside is not what it would have parsed.
    if (text.empty() || text.find('\0') != std::string::npos) return std::nullopt;
    // Any scheme is a URL; whether it can be loaded is the session's question.
    const auto handle = parseCurlURL(text);
    if (!handle) return std::nullopt;
    auto scheme = curlURLPart(handle.get(), CURLUPART_SCHEME);
    auto host = curlURLPart(handle.get(), CURLUPART_HOST);
    if (!scheme || !host || host->empty()) return std::nullopt;
    return URL(std::move(text), std::move(*scheme), std::move(*host));
}

} // namespace fexo
