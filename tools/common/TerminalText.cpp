#include <common/TerminalText.hpp>

#include <common/ToolName.hpp>

#include <FeXOPlatform/UTF8.hpp>

#include <cstdio>
#include <iostream>

namespace fexo::tool {

namespace {

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
        const auto [point, length] = decodeUTF8Character(text);
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
    std::cerr << toolName() << ": " << terminalText(text) << std::endl;
}

} // namespace fexo::tool
