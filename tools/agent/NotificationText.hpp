#pragma once

#include <string>
#include <string_view>

namespace fexo::agent {

// The text of a notification as the desktop gets it: plain text from the extension or the push,
// which may hold anything.

// `text` without NUL and the other C0 and C1 control characters (and DEL); line feeds stay when
// `keepLineFeeds`. A byte sequence that is not UTF-8 becomes U+FFFD, since the bus carries UTF-8
// only.
std::string plainText(std::string_view text, bool keepLineFeeds);

// `text` with &, < and > written as entities, for a daemon that reads the body as markup.
std::string escapedMarkup(std::string_view text);

} // namespace fexo::agent
