#include <support/ToolSandbox.hpp>

#include <httplib.h>

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace fexo::test {

ToolSandbox::ToolSandbox(std::filesystem::path tool) : tool_(std::move(tool))
{
    for (const char* name : {"resources", "app-groups"}) std::filesystem::create_directories(directory_.path() / name);
    ::setenv("FEXO_RESOURCES_DIR", (directory_.path() / "resources").c_str(), 1);
    ::setenv("FEXO_APP_GROUPS_DIR", (directory_.path() / "app-groups").c_str(), 1);
    configure(values_.baseURL);
}

ToolSandbox::~ToolSandbox()
{
    if (server_) server_->stop(SIGTERM);
}

void ToolSandbox::configure(const std::string& baseURL)
{
    values_.baseURL = baseURL;
    installConfiguration(directory_.path() / "resources", values_);
}

void ToolSandbox::serve()
{
    server_ = std::make_unique<ChildProcess>(tool_, std::vector<std::string>{"serve", "--port", "0", "--client-id",
                                                                             values_.clientId, "--client-secret",
                                                                             values_.clientSecret});
    const std::string baseURL = server_->readLine(std::chrono::seconds(10));
    if (!baseURL.starts_with("http://127.0.0.1:")) throw std::runtime_error("fexo serve printed \"" + baseURL + "\"");
    configure(baseURL);
}

nlohmann::json ToolSandbox::queueNotification(const std::string& recipientId, const std::string& text,
                                              const std::string& sender) const
{
    httplib::Client client(values_.baseURL);
    client.set_read_timeout(std::chrono::seconds(10));
    const auto result = client.Post(
        "/dev/notifications", {{"client_id", values_.clientId}, {"client_secret", values_.clientSecret}},
        nlohmann::json{{"recipientId", recipientId}, {"text", text}, {"sender", sender}}.dump(), "application/json");
    if (!result || result->status != 200) throw std::runtime_error("the served server queued nothing");
    return nlohmann::json::parse(result->body);
}

ProcessResult ToolSandbox::run(const std::vector<std::string>& arguments, const std::string& standardInput) const
{
    return ChildProcess::run(tool_, arguments, standardInput);
}

std::vector<std::string> outputLines(const std::string& output)
{
    std::vector<std::string> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

} // namespace fexo::test
