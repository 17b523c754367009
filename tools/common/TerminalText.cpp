#include <common/TerminalText.hpp>

#include <cstdint>
#include <cstdio>
#include <iostream>

namespace fexo::tool {

namespace {

// The code point that starts `text`, with its length in bytes; length 0 when the first byte
// does not begin a valid sequence (stray continuation, overlong form, surrogate, beyond U+10FFFF).
std::pair<char32_t, std::size_t> decodeFirst(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    if (length == 0 || lead > 0xF4 || text.size() < length) return {0, 0};
    char32_t point = lead & (0x7F >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {0, 0};
        point = (point << 6) | (byte(i) & 0x3F);
    }
    static constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < smallest[length] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return {0, 0};
    return {point, length};
}

bool isShownEscaped(char32_t point)
{
    return (point >= 0x80 && point <= 0x9F) || point == 0x2028 || point == 0x2029 ||
           (point >= 0x202A && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069) || point == 0x200E ||
           point == 0x200F || point == 0x061C;
}

// Calls `unit` with each character of `text` as it is shown: the character itself or its escape.
template <class Unit>
void forEachShownCharacter(std::string_view text, Unit&& unit)
{
    char escape[12];
    while (!text.empty()) {
        const auto [point, length] = decodeFirst(text);
        if (length == 0) {
            std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(text[0]));
            unit(std::string_view(escape));
            text.remove_prefix(1);
            continue;
        }
        if (point == '\n') {
            unit(std::string_view("\\n"));
        } else if (point == '\r') {
            unit(std::string_view("\\r"));
        } else if (point == '\t') {
            unit(std::string_view("\\t"));
        } else if (point < 0x20 || point == 0x7F) {
            std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(point));
            unit(std::string_view(escape));
        } else if (isShownEscaped(point)) {
            std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(point));
            unit(std::string_view(escape));
        } else {
            unit(text.substr(0, length));
        }
        text.remove_prefix(length);
    }
}

} // namespace

std::string terminalText(std::string_view text)
{
    std::string shown;
    shown.reserve(text.size());
    forEachShownCharacter(text, [&](std::string_view unit) { shown += unit; });
    return shown;
}

std::string terminalColumn(std::string_view text, std::size_t width)
{
    std::string shown;
    std::size_t used = 0;
    std::size_t fitting = 0; // length of `shown` while it still leaves room for "~"
    bool cut = false;
    forEachShownCharacter(text, [&](std::string_view unit) {
        if (cut) return;
        const std::size_t characters =
            unit.size() == 1 || static_cast<unsigned char>(unit[0]) >= 0x80 ? 1 : unit.size();
        if (used + characters > width) {
            cut = true;
            return;
        }
        shown += unit;
        used += characters;
        if (used + 1 <= width) fitting = shown.size();
    });
    if (!cut) return shown;
    if (width == 0) return "";
    shown.resize(fitting);
    return shown + "~";
}

void writeTerminalLine(std::ostream& out, std::string_view line)
{
    out << terminalText(line) << std::endl;
}

void reportProblem(std::string_view text)
{
    std::cout.flush();
    std::cerr << "fexo: " << terminalText(text) << std::endl;
}

} // namespace fexo::tool
