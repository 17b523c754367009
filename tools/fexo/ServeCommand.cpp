#include <fexo/Commands.hpp>

namespace fexo::tool {

void addServeCommand(CLI::App&, const ToolOptions&, int&)
{
}

} // namespace fexo::tool
