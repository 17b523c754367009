#include <support/ToolSandbox.hpp>

#include <httplib.h>

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace fexo::test {

namespace {

nlohmann::json answerOf(const httplib::Result& result, const std::string& what)
{
    if (!result) throw std::runtime_error(what + ": " + httplib::to_string(result.error()));
    if (result->status != 200) throw std::runtime_error(what + ": status " + std::to_string(result->status));
    return nlohmann::json::parse(result->body);
}

httplib::Client clientFor(const std::string& baseURL)
{
    httplib::Client client(baseURL);
    client.set_connection_timeout(std::chrono::seconds(10));
    client.set_read_timeout(std::chrono::seconds(10));
    return client;
}

httplib::Headers credentialsOf(const ConfigurationValues& values)
{
    return {{"client_id", values.clientId}, {"client_secret", values.clientSecret}};
}

} // namespace

ToolSandbox::ToolSandbox(std::filesystem::path tool) : tool_(std::move(tool))
{
    std::filesystem::create_directories(directory_.path() / "resources");
    std::filesystem::create_directories(directory_.path() / "app-groups");
    ::setenv("FEXO_RESOURCES_DIR", (directory_.path() / "resources").c_str(), 1);
    ::setenv("FEXO_APP_GROUPS_DIR", (directory_.path() / "app-groups").c_str(), 1);
}

ToolSandbox::~ToolSandbox()
{
    if (server_) server_->stop(SIGTERM);
}

void ToolSandbox::serve()
{
    server_ = std::make_unique<ChildProcess>(tool_, std::vector<std::string>{"serve", "--port", "0", "--client-id",
                                                                             values_.clientId, "--client-secret",
                                                                             values_.clientSecret});
    const std::string baseURL = server_->readLine(std::chrono::seconds(10));
    if (baseURL.rfind("http://127.0.0.1:", 0) != 0) {
        throw std::runtime_error("fexo serve printed no base URL but \"" + baseURL + "\"");
    }
    configure(baseURL);
}

nlohmann::json ToolSandbox::queueNotification(const std::string& recipientId, const std::string& text,
                                              const std::string& sender) const
{
    auto client = clientFor(values_.baseURL);
    const nlohmann::json body{{"recipientId", recipientId}, {"text", text}, {"sender", sender}};
    return answerOf(client.Post("/dev/notifications", credentialsOf(values_), body.dump(), "application/json"),
                    "POST /dev/notifications");
}

nlohmann::json ToolSandbox::registrations() const
{
    auto client = clientFor(values_.baseURL);
    return answerOf(client.Get("/dev/registrations", credentialsOf(values_)), "GET /dev/registrations");
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
    return ChildProcess::run(tool_, arguments, options);
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
