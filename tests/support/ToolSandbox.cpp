#include <support/ToolSandbox.hpp>

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace fexo::test {

ToolSandbox::ToolSandbox(std::filesystem::path tool) : tool_(std::move(tool))
{
    std::filesystem::create_directories(directory_.path() / "resources");
    std::filesystem::create_directories(directory_.path() / "app-groups");
    ::setenv("FEXO_RESOURCES_DIR", (directory_.path() / "resources").c_str(), 1);
    ::setenv("FEXO_APP_GROUPS_DIR", (directory_.path() / "app-groups").c_str(), 1);
}

void ToolSandbox::configure(const std::string& baseURL)
{
    values_.baseURL = baseURL;
    installConfiguration(directory_.path() / "resources", values_);
}

ProcessResult ToolSandbox::run(const std::vector<std::string>& arguments, const std::string& standardInput,
                               std::chrono::milliseconds limit) const
{
    ProcessOptions options;
    options.standardInput = standardInput;
    options.timeLimit = limit;
    return runProcess(tool_, arguments, options);
}

std::shared_ptr<UserDefaults> ToolSandbox::store() const
{
    auto store = UserDefaults::open(values_.appGroup);
    if (!store) throw std::runtime_error("cannot open the app group store " + values_.appGroup);
    return store;
}

std::vector<std::string> outputLines(const std::string& output)
{
    std::vector<std::string> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

} // namespace fexo::test
