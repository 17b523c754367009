#pragma once

#include <fexo/Commands.hpp>

namespace fexo::tool {

// The commands of fexo-devserver, reached through fexo's hand-over (see DevelopmentServerHandOff).
// Their contract is that of Commands.hpp.
void addServeCommand(CLI::App& app, const ToolOptions& options, int& exitCode);
void addDemoCommand(CLI::App& app, const ToolOptions& options, int& exitCode);

} // namespace fexo::tool
