#include <common/ToolName.hpp>

#include <string_view>

namespace fexo::tool {

namespace {

std::string& name()
{
    static std::string current = "fexo";
    return current;
}

} // namespace

void setToolName(const char* argv0)
{
    if (argv0 == nullptr || *argv0 == '\0') return;
    const std::string_view path = argv0;
    const auto slash = path.find_last_of('/');
    const std::string_view base = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (!base.empty()) name() = std::string(base);
}

const std::string& toolName()
{
    return name();
}

} // namespace fexo::tool
