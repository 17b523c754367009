#include <fexo/Commands.hpp>

#include <FeXOPlatform/Bundle.hpp>

#include <cstdlib>

namespace fexo::tool {

void ToolOptions::apply() const
{
    if (resources) Bundle::main().setResourcesDirectory(*resources);
    if (appGroups) ::setenv("FEXO_APP_GROUPS_DIR", appGroups->c_str(), 1);
}

} // namespace fexo::tool
