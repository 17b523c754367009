#include <support/DevelopmentServerProcess.hpp>

#include <httplib.h>

#include <csignal>
#include <stdexcept>

namespace fexo::test {

namespace {

httplib::Client clientFor(const std::string& baseURL)
{
    httplib::Client client(baseURL);
    client.set_connection_timeout(std::chrono::seconds(10));
    client.set_read_timeout(std::chrono::seconds(10));
    return client;
}

nlohmann::json answerOf(const httplib::Result& result, const std::string& what)
{
    if (!result) throw std::runtime_error(what + ": " + httplib::to_string(result.error()));
    if (result->status != 200) throw std::runtime_error(what + ": status " + std::to_string(result->status));
    return nlohmann::json::parse(result->body);
}

} // namespace

DevelopmentServerProcess::DevelopmentServerProcess(const std::filesystem::path& tool,
                                                   const ConfigurationValues& credentials)
    : credentials_(credentials),
      child_(tool.string(), {"serve", "--port", "0", "--client-id", credentials.clientId, "--client-secret",
                             credentials.clientSecret})
{
    baseURL_ = child_.readLine(std::chrono::seconds(10));
    if (baseURL_.rfind("http://127.0.0.1:", 0) != 0) {
        throw std::runtime_error("fexo serve printed no base URL but \"" + baseURL_ + "\"");
    }
}

DevelopmentServerProcess::~DevelopmentServerProcess()
{
    child_.stop(SIGTERM);
}

nlohmann::json DevelopmentServerProcess::queueNotification(const std::string& recipientId, const std::string& text,
                                                           const std::string& sender) const
{
    auto client = clientFor(baseURL_);
    const httplib::Headers headers{{"client_id", credentials_.clientId}, {"client_secret", credentials_.clientSecret}};
    const nlohmann::json body{{"recipientId", recipientId}, {"text", text}, {"sender", sender}};
    return answerOf(client.Post("/dev/notifications", headers, body.dump(), "application/json"), "POST /dev/notifications");
}

nlohmann::json DevelopmentServerProcess::registrations() const
{
    auto client = clientFor(baseURL_);
    const httplib::Headers headers{{"client_id", credentials_.clientId}, {"client_secret", credentials_.clientSecret}};
    return answerOf(client.Get("/dev/registrations", headers), "GET /dev/registrations");
}

} // namespace fexo::test
