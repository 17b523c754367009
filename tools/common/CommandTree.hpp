#pragma once

#include <CLI/CLI.hpp>

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <utility>
#include <vector>

namespace fexo::tool {

// A command that a tool lists but leaves to a sibling executable, which parses the rest of the
// command line itself: the command's name and that executable's name.
using HandedOverTo = std::vector<std::pair<std::string, std::string>>;

// The command line that `app` parses, as data: the build reads it to write the manual pages and
// the shell completion, so that both follow the tools' own help. An object with "name",
// "description", "options" (each with "names", "value": the value's type or null for a flag,
// "description", and "choices" where the value is one of a set), "arguments" (the positional
// ones: "name", "value", "description", "required"), "commands" (the subcommands, each such an
// object) and, for a command that passes the rest of the line on, "handed_over_to": the sibling
// named in `handedOver`. Hidden options and commands are left out.
nlohmann::json commandTree(const CLI::App& app, const HandedOverTo& handedOver = {});

// Adds the hidden flag --command-tree to the top level of `app`: it prints commandTree as JSON
// and ends the parse with exit status 0 before any command is required or runs.
void addCommandTreeFlag(CLI::App& app, HandedOverTo handedOver = {});

} // namespace fexo::tool
