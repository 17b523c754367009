#pragma once

#include <array>
#include <string_view>

namespace fexo::tool {

// Commands that fexo lists in its help but leaves to a sibling executable, so that fexo itself
// links neither an HTTP server (`serve`, `demo`: fexo-devserver) nor the bus library (`agent`:
// fexo-agent). fexo hands them over by name with argv unchanged.
struct HandedOverCommand {
    std::string_view name;
    const char* executable;
    const char* description;
};

inline constexpr const char* developmentServerExecutable = "fexo-devserver";
inline constexpr const char* agentExecutable = "fexo-agent";

// Listed in fexo's help and registered by the sibling under the same words.
inline constexpr std::array<HandedOverCommand, 3> handedOverCommands{{
    {"serve", developmentServerExecutable,
     "Run a development server that stands in for the FeXO service on this machine; "
     "prints its base URL, serves until SIGINT or SIGTERM"},
    {"demo", developmentServerExecutable,
     "Run the whole system in a temporary directory: development server, registration, a push "
     "handled by the extension, the stored record listed, marked read, and logout"},
    {"agent", agentExecutable,
     "The notification agent on the session bus: `agent run` serves it, `agent push [FILE|-]` hands "
     "it a push and prints what it delivered"},
}};

inline const char* handedOverDescription(std::string_view name)
{
    for (const auto& command : handedOverCommands) {
        if (command.name == name) return command.description;
    }
    return "";
}

} // namespace fexo::tool
