// The development server as its users rely on it: the tools, the demo and the other suites.
#include <devserver/DevelopmentServer.hpp>

#include <support/ChildProcess.hpp>
#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gmock/gmock.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <csignal>

namespace {

using Json = nlohmann::json;
using testing::HasSubstr;

constexpr const char* clientId = "dev-client";
constexpr const char* clientSecret = "dev-secret-0123456789";
const httplib::Headers accepted{{"client_id", clientId}, {"client_secret", clientSecret}};

Json registration(const std::string& deviceId, const std::string& token)
{
    Json body{{"deviceId", deviceId}, {"registrationId", token}, {"pushNotificationProvider", 2}};
    for (const char* key : {"mobileNumber", "appId", "osType", "osVersion", "imeI1", "imeI2", "data"}) body[key] = "";
    return body;
}

// Status and JSON body of one request to 127.0.0.1:`port`; a GET when there is no body.
std::pair<int, Json> ask(int port, const std::string& path, const std::optional<Json>& body = std::nullopt,
                         const httplib::Headers& headers = accepted)
{
    httplib::Client client("127.0.0.1", port);
    const auto result = body ? client.Post(path, headers, body->is_string() ? body->get<std::string>() : body->dump(),
                                           "application/json")
                             : client.Get(path, headers);
    return {result ? result->status : 0, result ? Json::parse(result->body, nullptr, false) : Json()};
}

class DevelopmentServerTest : public testing::Test {
protected:
    void SetUp() override { start(std::nullopt); }
    void start(std::optional<std::filesystem::path> data)
    {
        fexo::tool::DevelopmentServerOptions options;
        std::tie(options.port, options.dataDirectory, options.clientId, options.clientSecret) =
            std::tuple(0, data, clientId, clientSecret);
        server = std::make_unique<fexo::tool::DevelopmentServer>(std::move(options));
        port = server->start();
    }
    std::pair<int, Json> fetch(const std::string& recipient)
    {
        return ask(port, "/api/Notification/GetNotificationContent",
                   Json{{"recipientId", recipient}, {"registrationId", ""}});
    }
    Json queue(const std::string& recipient, const std::string& text)
    {
        return ask(port, "/dev/notifications", Json{{"recipientId", recipient}, {"text", text}, {"sender", "Ann"}})
            .second;
    }

    std::unique_ptr<fexo::tool::DevelopmentServer> server;
    int port = 0;
};

TEST_F(DevelopmentServerTest, EveryPathRefusesWrongCredentialsAndRecordsNoSecret)
{
    const Json body{{"recipientId", "r"}, {"text", "t"}, {"sender", "s"}};
    for (const httplib::Headers& headers :
         {httplib::Headers{}, httplib::Headers{{"client_id", clientId}},
          httplib::Headers{{"client_id", clientId}, {"client_secret", "dev-secret-wrong"}}}) {
        for (const char* path : {"/api/Registration/RegisterNewDevice", "/api/Notification/GetNotificationContent",
                                 "/dev/notifications"}) {
            EXPECT_EQ(ask(port, path, body, headers),
                      std::pair(401, Json{{"errorMessage", "Invalid client credentials"}}))
                << path;
        }
        EXPECT_EQ(ask(port, "/dev/registrations", std::nullopt, headers).first, 401);
    }
    EXPECT_EQ(fetch("r").first, 404); // nothing a refused request carried was acted on
    EXPECT_EQ(ask(port, "/no/such/path").second, Json({{"errorMessage", "Not Found"}}));
    for (const auto& exchange : server->exchanges()) {
        for (const auto& [name, value] : exchange.requestHeaders) EXPECT_THAT(value, Not(HasSubstr("dev-secret")));
    }
}

TEST_F(DevelopmentServerTest, KeepsRegistrationsAndQueuesInItsDataDirectoryAndHandsOutEachOnceOldestFirst)
{
    fexo::test::TemporaryDirectory directory;
    start(directory.path());
    for (const auto& [device, token] :
         {std::pair("device-1", "token-a"), {"device-2", "token-b"}, {"device-1", "token-c"}}) {
        ask(port, "/api/Registration/RegisterNewDevice", registration(device, token));
    }
    // The push user-info carries the token of the recipient's latest registration.
    EXPECT_EQ(queue("device-1", "first"), Json({{"recipientId", "device-1"},
                                                {"registration_id", "token-c"},
                                                {"aps", {{"alert", {{"title", "Ann"}, {"body", "first"}}}}}}));
    queue("device-1", "second");
    server.reset();
    start(directory.path());
    EXPECT_EQ(ask(port, "/dev/registrations").second,
              Json::array({registration("device-2", "token-b"), registration("device-1", "token-c")}));
    const Json first = fetch("device-1").second;
    EXPECT_EQ(first.value("id", "").size(), 36u); // the shape of the identifier is UUID's
    EXPECT_EQ(first.at("data"), Json({{"text", "first"}, {"sender", "Ann"}}));
    EXPECT_EQ(fetch("device-1").second.at("data").at("text"), "second");
    EXPECT_EQ(fetch("device-1"), std::pair(404, Json{{"errorCode", 404}, {"errorMessage", "Notification not found"}}));
}

TEST(ServeCommand, TakesCredentialsFromTheConfigurationOrItsFlagsUntilSIGTERM)
{
    fexo::test::TemporaryDirectory resources;
    const fexo::test::ConfigurationValues values{.clientId = "configured-id"};
    fexo::test::installConfiguration(resources.path(), values);
    fexo::test::ChildProcess serve(
        FEXO_TOOL_PATH, {"--resources", resources.path(), "serve", "--port", "0", "--client-secret", "flag-secret"});
    const std::string baseURL = serve.readLine();
    ASSERT_TRUE(baseURL.starts_with("http://127.0.0.1:")) << baseURL;
    const auto status = [port = std::stoi(baseURL.substr(17))](const std::string& secret) {
        return ask(port, "/dev/registrations", std::nullopt,
                   {{"client_id", "configured-id"}, {"client_secret", secret}})
            .first;
    };
    EXPECT_EQ(status("flag-secret"), 200);
    EXPECT_EQ(status(values.clientSecret), 401);
    EXPECT_EQ(serve.stop(SIGTERM), 0);

    fexo::test::TemporaryDirectory empty; // no configuration: both flags are needed
    fexo::test::ChildProcess refused(FEXO_TOOL_PATH,
                                     {"--resources", empty.path(), "serve", "--port", "0", "--client-id", "only"});
    EXPECT_EQ(refused.readLine(), "");
    EXPECT_EQ(refused.stop(0), 1);
}

// A busy port is refused, never shared (with SO_REUSEPORT two servers took turns at requests);
// a server reachable from other machines with the secret everyone has read is warned of.
TEST(ServeCommand, BindsItsPortAloneAndWarnsOfTheDocumentedSecretBeyondLoopback)
{
    fexo::test::TemporaryDirectory resources;
    fexo::test::installConfiguration(resources.path());
    const std::vector<std::string> credentials{"--client-id", "c", "--client-secret", "s"};
    std::vector<std::string> first{"--resources", resources.path(), "serve", "--port", "0"};
    first.insert(first.end(), credentials.begin(), credentials.end());
    fexo::test::ChildProcess serving(FEXO_TOOL_PATH, first);
    const std::string baseURL = serving.readLine();
    ASSERT_TRUE(baseURL.starts_with("http://127.0.0.1:")) << baseURL;
    std::vector<std::string> second{"--resources", resources.path(), "serve", "--port", baseURL.substr(17)};
    second.insert(second.end(), credentials.begin(), credentials.end());
    const auto busy = fexo::test::ChildProcess::run(FEXO_TOOL_PATH, second);
    EXPECT_EQ(busy.exitCode, 1);
    EXPECT_EQ(busy.standardError,
              "fexo-devserver: cannot listen on 127.0.0.1 port " + baseURL.substr(17) + ": Address already in use\n");
    EXPECT_EQ(serving.stop(SIGTERM), 0);

    // The warning comes before the server's address, on standard error.
    const auto warned = [&](const std::string& host, const std::string& secret) {
        fexo::test::ChildProcess open(FEXO_TOOL_PATH,
                                      {"--resources", resources.path(), "serve", "--host", host, "--port", "0",
                                       "--client-id", "c", "--client-secret", secret},
                                      fexo::test::ChildProcess::StandardError::onStandardOutput);
        const std::string first = open.readLine();
        const bool warning = first.starts_with("fexo-devserver: warning: serving on " + host);
        // The address comes once the server runs and waits for its stop signal.
        EXPECT_TRUE((warning ? open.readLine() : first).starts_with("http://" + host + ":")) << host;
        EXPECT_EQ(open.stop(SIGTERM), 0) << host;
        return warning;
    };
    EXPECT_TRUE(warned("0.0.0.0", "dev-client-secret-change-me"));
    EXPECT_FALSE(warned("0.0.0.0", "a-secret-of-its-own"));
    EXPECT_FALSE(warned("127.0.0.1", "dev-client-secret-change-me"));
}

} // namespace
