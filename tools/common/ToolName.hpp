#pragma once

#include <string>

namespace fexo::tool {

// The name of this executable ("fexo", "fexo-devserver"), fixed by its main before anything
// else: the prefix of every problem line and of the top-level description, the same however the
// executable was reached (fexo hands some commands over to its siblings, whose usage lines still
// name the command as typed, "fexo serve"). "fexo" until set. Not for use across threads while it
// is being set.
void setToolName(std::string executable);
const std::string& toolName();

} // namespace fexo::tool
