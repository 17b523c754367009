#pragma once

#include <array>
#include <string_view>

namespace fexo::tool {

// `serve` and `demo` carry an HTTP server, so they live in the sibling executable
// fexo-devserver; fexo links none of it and hands these commands over by name.
inline constexpr const char* developmentServerExecutable = "fexo-devserver";

struct HandedOverCommand {
    std::string_view name;
    const char* description;
};

// Listed in fexo's help and registered by fexo-devserver under the same words.
inline constexpr std::array<HandedOverCommand, 2> handedOverCommands{{
    {"serve", "Run a development server that stands in for the FeXO service on this machine; "
              "prints its base URL, serves until SIGINT or SIGTERM"},
    {"demo", "Run the whole system in a temporary directory: development server, registration, a push "
             "handled by the extension, the stored record listed, marked read, and logout"},
}};

inline const char* handedOverDescription(std::string_view name)
{
    for (const auto& command : handedOverCommands) {
        if (command.name == name) return command.description;
    }
    return "";
}

} // namespace fexo::tool
