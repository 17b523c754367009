#include <agent/NotificationText.hpp>

#include <cstdint>

namespace fexo::agent {

namespace {

// The length of the well-formed UTF-8 sequence at the start of `text` and its code point; 0 when
// it is not one (overlong forms, surrogates and values past U+10FFFF included).
std::size_t sequence(std::string_view text, std::uint32_t& codePoint)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    std::size_t length = 0;
    if (lead < 0x80) {
        codePoint = lead;
        return 1;
    }
    if (lead >= 0xc2 && lead <= 0xdf)
        length = 2, codePoint = lead & 0x1f;
    else if (lead >= 0xe0 && lead <= 0xef)
        length = 3, codePoint = lead & 0x0f;
    else if (lead >= 0xf0 && lead <= 0xf4)
        length = 4, codePoint = lead & 0x07;
    else
        return 0;
    if (text.size() < length) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
        codePoint = (codePoint << 6) | (byte(i) & 0x3f);
    }
    const bool overlong = (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000);
    if (overlong || (codePoint >= 0xd800 && codePoint <= 0xdfff) || codePoint > 0x10ffff) return 0;
    return length;
}

} // namespace

std::string plainText(std::string_view text, bool keepLineFeeds)
{
    std::string plain;
    plain.reserve(text.size());
    while (!text.empty()) {
        std::uint32_t codePoint = 0;
        const std::size_t length = sequence(text, codePoint);
        if (length == 0) {
            plain += "\xef\xbf\xbd"; // U+FFFD for the one byte that starts no sequence
            text.remove_prefix(1);
            continue;
        }
        const bool control = codePoint < 0x20 || (codePoint >= 0x7f && codePoint <= 0x9f);
        if (!control || (keepLineFeeds && codePoint == '\n')) plain.append(text.substr(0, length));
        text.remove_prefix(length);
    }
    return plain;
}

std::string escapedMarkup(std::string_view text)
{
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

} // namespace fexo::agent
