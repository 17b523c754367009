#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

namespace fexo::tool {

// Every human-readable line the tools print goes through here, since stored records, server
// answers, configuration values and arguments may hold text that a terminal would obey (escape
// sequences that retitle the window, clear the screen or rewrite earlier lines). JSON output
// does not: its own escaping keeps it exact.
//
// Valid UTF-8 is kept, except that control characters are written out: C0 controls and DEL as
// \n, \r, \t or \xHH; C1 controls, the line and paragraph separators and the bidirectional
// controls as \uHHHH. A byte that does not begin a valid UTF-8 sequence becomes \xHH. The
// result is printable text only, so escaping it again changes nothing.
std::string terminalText(std::string_view text);

// terminalText(text) in at most `width` characters, cut between characters (an escape counts as
// its letters and is never split); a cut text ends with "~". Characters, not display cells: a
// double-width character counts once.
std::string terminalColumn(std::string_view text, std::size_t width);

// Writes terminalText(line) and a line feed, then flushes.
void writeTerminalLine(std::ostream& out, std::string_view line);

// One line on standard error: "fexo: " and terminalText(text).
void reportProblem(std::string_view text);

} // namespace fexo::tool
