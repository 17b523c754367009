#include <common/ToolName.hpp>

#include <utility>

namespace fexo::tool {

namespace {

std::string& name()
{
    static std::string current = "fexo";
    return current;
}

} // namespace

void setToolName(std::string executable)
{
    name() = std::move(executable);
}

const std::string& toolName()
{
    return name();
}

} // namespace fexo::tool
