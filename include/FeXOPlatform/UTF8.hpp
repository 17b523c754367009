#pragma once

#include <FeXOPlatform/Export.hpp>

#include <cstddef>
#include <string_view>

namespace fexo {

// UTF-8 as Unicode defines it: a character is one well-formed sequence of 1 to 4 bytes, never an
// overlong form, a surrogate (U+D800 to U+DFFF) or a code point past U+10FFFF. U+0000 is a
// character like any other. Pure functions: any thread.

// A character found at the start of a text.
struct UTF8Character {
    char32_t codePoint = 0;
    std::size_t length = 0; // in bytes, 1 to 4; 0 when no well-formed sequence starts there
};

// The character that `text` starts with. Length 0 when `text` is empty or starts with a byte
// that begins no sequence (a continuation byte, 0xC0, 0xC1, 0xF5 to 0xFF), with a sequence cut
// short or broken by a byte that does not continue it, or with an overlong form, a surrogate or
// a code point past U+10FFFF. Inline, for the decoding loops of its callers.
inline UTF8Character decodeUTF8Character(std::string_view text) noexcept
{
    if (text.empty()) return {};
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char lead = bytes[0];
    if (lead < 0x80) return {lead, 1};
    const std::size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                               : lead >= 0xE0 && lead <= 0xEF ? 3
                               : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                              : 0;
    if (length == 0 || text.size() < length) return {};
    // The second byte's range rules out overlong forms, surrogates and code points past U+10FFFF.
    const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (bytes[1] < low || bytes[1] > high) return {};
    char32_t codePoint = ((lead & (0x7Fu >> length)) << 6) | (bytes[1] & 0x3Fu);
    for (std::size_t k = 2; k < length; ++k) {
        if ((bytes[k] & 0xC0) != 0x80) return {};
        codePoint = (codePoint << 6) | (bytes[k] & 0x3Fu);
    }
    return {codePoint, length};
}

// Whether the whole of `text` is a series of well-formed characters (an empty text is).
FEXO_EXPORT bool isValidUTF8(std::string_view text) noexcept;

} // namespace fexo
