#pragma once

#include <string>

namespace fexo::tool {

// The name the user typed to run this tool: the base name of argv[0], which is "fexo" also when
// fexo has handed a command over to a sibling executable (the sibling keeps fexo's argument
// vector). Usage lines, the top-level description and the prefix of every problem line use it,
// so that each invocation speaks with one name. Set by main before anything else; "fexo" until
// then. Not for use across threads while it is being set.
void setToolName(const char* argv0);
const std::string& toolName();

} // namespace fexo::tool
