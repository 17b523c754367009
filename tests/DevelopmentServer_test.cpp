#include <devserver/DevelopmentServer.hpp>

#include <FeXOPlatform/Date.hpp>
#include <support/ChildProcess.hpp>
#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <future>
#include <set>

namespace {

using fexo::tool::DevelopmentServer;
using fexo::tool::DevelopmentServerOptions;
using Json = nlohmann::json;
using testing::Not;
using testing::HasSubstr;

constexpr const char* clientId = "dev-client";
constexpr const char* clientSecret = "dev-secret-0123456789";

Json registrationBody(const std::string& deviceId, const std::string& token)
{
    return {{"deviceId", deviceId}, {"registrationId", token}, {"mobileNumber", "+100"},
            {"appId", "com.example.host"}, {"osType", "iOS"}, {"osVersion", "12"},
            {"imeI1", ""}, {"imeI2", ""}, {"data", ""}, {"pushNotificationProvider", 2}};
}

struct Answer {
    int status = 0;
    Json body;
};

// A client of one server, sending the accepted credentials unless told otherwise.
class Client {
public:
    explicit Client(int port, httplib::Headers headers = {{"client_id", clientId}, {"client_secret", clientSecret}})
        : http_("127.0.0.1", port), headers_(std::move(headers))
    {
    }

    Answer post(const std::string& path, const std::string& body)
    {
        return answer(http_.Post(path.c_str(), headers_, body, "application/json"));
    }
    Answer post(const std::string& path, const Json& body) { return post(path, body.dump()); }
    Answer get(const std::string& path) { return answer(http_.Get(path.c_str(), headers_)); }

private:
    static Answer answer(const httplib::Result& result)
    {
        if (!result) {
            ADD_FAILURE() << "request failed: " << httplib::to_string(result.error());
            return {};
        }
        EXPECT_EQ(result->get_header_value("Content-Type"), "application/json; charset=utf-8");
        return {result->status, Json::parse(result->body)};
    }

    httplib::Client http_;
    httplib::Headers headers_;
};

class DevelopmentServerTest : public testing::Test {
protected:
    void SetUp() override { start(std::nullopt); }

    void start(std::optional<std::filesystem::path> dataDirectory)
    {
        DevelopmentServerOptions options;
        options.port = 0;
        options.clientId = clientId;
        options.clientSecret = clientSecret;
        options.dataDirectory = std::move(dataDirectory);
        server_ = std::make_unique<DevelopmentServer>(std::move(options));
        client_ = std::make_unique<Client>(server_->start());
    }

    Json queue(const std::string& recipientId, const std::string& text, const std::string& sender = "Ann")
    {
        const Answer answer = client_->post("/dev/notifications",
                                            Json{{"recipientId", recipientId}, {"text", text}, {"sender", sender}});
        EXPECT_EQ(answer.status, 200) << answer.body;
        return answer.body;
    }

    Answer fetch(const std::string& recipientId)
    {
        return client_->post("/api/Notification/GetNotificationContent",
                             Json{{"recipientId", recipientId}, {"registrationId", "token"}});
    }

    std::unique_ptr<DevelopmentServer> server_;
    std::unique_ptr<Client> client_;
};

TEST_F(DevelopmentServerTest, EveryPathRefusesMissingOrWrongCredentials)
{
    const httplib::Headers refused[] = {
        {},
        {{"client_id", clientId}},
        {{"client_secret", clientSecret}},
        {{"client_id", clientId}, {"client_secret", "dev-secret-wrong"}},
        {{"client_id", "other"}, {"client_secret", clientSecret}},
        {{"client_id", ""}, {"client_secret", ""}},
    };
    const Json expected = {{"errorMessage", "Invalid client credentials"}};
    for (const auto& headers : refused) {
        Client client(server_->port(), headers);
        for (const char* path : {"/api/Registration/RegisterNewDevice", "/api/Notification/GetNotificationContent",
                                 "/dev/notifications"}) {
            SCOPED_TRACE(path);
            const Answer answer = client.post(path, Json{{"recipientId", "r"}, {"text", "t"}, {"sender", "s"}});
            EXPECT_EQ(answer.status, 401);
            EXPECT_EQ(answer.body, expected);
        }
        const Answer answer = client.get("/dev/registrations");
        EXPECT_EQ(answer.status, 401);
        EXPECT_EQ(answer.body, expected);
    }
    // Nothing a refused request carried was acted on.
    EXPECT_EQ(fetch("r").status, 404);
}

TEST_F(DevelopmentServerTest, RegistrationValidationListsEveryFailingKey)
{
    struct Case {
        const char* name;
        Json body;
        std::vector<std::string> failing;
    };
    Json wrongTypes = registrationBody("d", "t");
    wrongTypes["deviceId"] = 7;
    wrongTypes["imeI2"] = Json::array();
    wrongTypes["data"] = nullptr;
    wrongTypes["pushNotificationProvider"] = "2";
    const auto withProvider = [](Json provider) {
        Json body = registrationBody("d", "t");
        body["pushNotificationProvider"] = std::move(provider);
        return body;
    };
    const std::vector<std::string> allKeys = {"deviceId", "registrationId", "mobileNumber", "appId", "osType",
                                              "osVersion", "imeI1", "imeI2", "data", "pushNotificationProvider"};
    const Case cases[] = {
        {"empty object", Json::object(), allKeys},
        {"wrong types and null", wrongTypes, {"deviceId", "imeI2", "data", "pushNotificationProvider"}},
        {"provider 0", withProvider(0), {"pushNotificationProvider"}},
        {"provider 4", withProvider(4), {"pushNotificationProvider"}},
        {"provider -1", withProvider(-1), {"pushNotificationProvider"}},
        {"provider 2.5", withProvider(2.5), {"pushNotificationProvider"}},
        {"provider true", withProvider(true), {"pushNotificationProvider"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Answer answer = client_->post("/api/Registration/RegisterNewDevice", c.body);
        EXPECT_EQ(answer.status, 400);
        EXPECT_EQ(answer.body.value("errorMessage", ""), "Validation failed");
        std::vector<std::string> fields;
        for (const Json& error : answer.body.at("errors")) {
            fields.push_back(error.at("field").get<std::string>());
            EXPECT_THAT(error.at("errorMessage").get<std::string>(), HasSubstr(fields.back()));
        }
        EXPECT_EQ(fields, c.failing);
    }

    for (const char* body : {"", "{", "[]", "\"deviceId\"", "null", "{\"deviceId\":\"\xff\"}"}) {
        SCOPED_TRACE(body);
        const Answer answer = client_->post("/api/Registration/RegisterNewDevice", std::string(body));
        EXPECT_EQ(answer.status, 400);
        EXPECT_EQ(answer.body, Json({{"errorMessage", "The request body must be a JSON object"}}));
    }
    EXPECT_EQ(client_->get("/dev/registrations").body, Json::array());

    // The other two bodies are checked the same way.
    Answer answer = client_->post("/dev/notifications", Json{{"recipientId", "r"}, {"text", 1}});
    EXPECT_EQ(answer.body.at("errors").size(), 2u) << answer.body; // text and sender
    answer = client_->post("/api/Notification/GetNotificationContent", Json{{"recipientId", "r"}});
    EXPECT_EQ(answer.status, 400);
    EXPECT_EQ(answer.body.at("errors").at(0).at("field"), "registrationId");
    EXPECT_EQ(fetch("r").status, 404);
}

TEST_F(DevelopmentServerTest, RegistrationIsKeptAndReplacedPerDevice)
{
    for (const auto& [device, token] : std::vector<std::pair<std::string, std::string>>{
             {"device-1", "token-a"}, {"device-2", "token-b"}, {"device-1", "token-c"}}) {
        const Answer answer = client_->post("/api/Registration/RegisterNewDevice", registrationBody(device, token));
        EXPECT_EQ(answer.status, 200);
        EXPECT_EQ(answer.body, Json::object());
    }
    const Answer list = client_->get("/dev/registrations");
    EXPECT_EQ(list.status, 200);
    EXPECT_EQ(list.body, Json::array({registrationBody("device-2", "token-b"), registrationBody("device-1", "token-c")}));

    // The push user-info carries the push token of the recipient's registration.
    EXPECT_EQ(queue("device-1", "hello", "Bob"),
              Json({{"recipientId", "device-1"},
                    {"registration_id", "token-c"},
                    {"aps", {{"alert", {{"title", "Bob"}, {"body", "hello"}}}}}}));
    EXPECT_EQ(queue("nobody", "hi").at("registration_id"), "");
}

TEST_F(DevelopmentServerTest, QueueHandsOutOldestFirstOncePerRecipient)
{
    const double before = fexo::Date::now().timeIntervalSinceReferenceDate();
    queue("alice", "first", "Sam");
    queue("bob", "for bob");
    queue("alice", "second");
    const double after = fexo::Date::now().timeIntervalSinceReferenceDate();

    const Answer first = fetch("alice");
    ASSERT_EQ(first.status, 200) << first.body;
    EXPECT_EQ(first.body.at("data"), Json({{"text", "first"}, {"sender", "Sam"}}));
    EXPECT_EQ(first.body.at("isRead"), false);
    EXPECT_THAT(first.body.at("id").get<std::string>(),
                testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
    ASSERT_TRUE(first.body.at("createdAt").is_number());
    EXPECT_GE(first.body.at("createdAt").get<double>(), before);
    EXPECT_LE(first.body.at("createdAt").get<double>(), after);
    EXPECT_EQ(first.body.size(), 4u) << first.body;

    const Answer second = fetch("alice");
    EXPECT_EQ(second.body.at("data").at("text"), "second");
    EXPECT_NE(second.body.at("id"), first.body.at("id"));

    const Answer empty = fetch("alice");
    EXPECT_EQ(empty.status, 404);
    EXPECT_EQ(empty.body, Json({{"errorCode", 404}, {"errorMessage", "Notification not found"}}));

    EXPECT_EQ(fetch("bob").body.at("data").at("text"), "for bob");
    EXPECT_EQ(fetch("bob").status, 404);
}

TEST_F(DevelopmentServerTest, ConcurrentFetchesDeliverEachNotificationOnce)
{
    constexpr int count = 60;
    for (int i = 0; i < count; ++i) queue("crowd", std::to_string(i));

    std::vector<std::future<std::vector<std::string>>> workers;
    for (int t = 0; t < 6; ++t) {
        workers.push_back(std::async(std::launch::async, [port = server_->port()] {
            Client client(port);
            std::vector<std::string> texts;
            for (;;) {
                const Answer answer = client.post("/api/Notification/GetNotificationContent",
                                                  Json{{"recipientId", "crowd"}, {"registrationId", ""}});
                if (answer.status != 200) break;
                texts.push_back(answer.body.at("data").at("text").get<std::string>());
            }
            return texts;
        }));
    }
    std::multiset<std::string> delivered;
    for (auto& worker : workers) {
        ASSERT_EQ(worker.wait_for(std::chrono::seconds(30)), std::future_status::ready);
        for (auto& text : worker.get()) delivered.insert(text);
    }
    EXPECT_EQ(delivered.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(std::set<std::string>(delivered.begin(), delivered.end()).size(), static_cast<std::size_t>(count));
}

TEST_F(DevelopmentServerTest, DataDirectoryOutlivesTheServer)
{
    fexo::test::TemporaryDirectory directory;
    client_.reset();
    start(directory.path() / "data");
    client_->post("/api/Registration/RegisterNewDevice", registrationBody("device", "token"));
    queue("device", "kept");
    client_.reset();
    server_.reset();

    start(directory.path() / "data");
    EXPECT_EQ(client_->get("/dev/registrations").body, Json::array({registrationBody("device", "token")}));
    EXPECT_EQ(fetch("device").body.at("data").at("text"), "kept");
    EXPECT_EQ(fetch("device").status, 404);
}

TEST_F(DevelopmentServerTest, ExchangesRecordTheWireWithoutTheSecret)
{
    queue("r", "logged");
    Client(server_->port(), {{"client_id", clientId}, {"client_secret", "another-secret-value"}}).get("/dev/registrations");

    const auto exchanges = server_->exchanges();
    ASSERT_EQ(exchanges.size(), 2u);
    EXPECT_EQ(exchanges[0].method, "POST");
    EXPECT_EQ(exchanges[0].path, "/dev/notifications");
    EXPECT_EQ(exchanges[0].status, 200);
    EXPECT_EQ(Json::parse(exchanges[0].requestBody).at("text"), "logged");
    EXPECT_EQ(Json::parse(exchanges[0].responseBody).at("recipientId"), "r");
    EXPECT_EQ(exchanges[0].requestHeaders.at("client_id"), clientId);
    EXPECT_EQ(exchanges[1].status, 401);
    for (const auto& exchange : exchanges) {
        for (const auto& [name, value] : exchange.requestHeaders) {
            EXPECT_THAT(value, Not(HasSubstr(clientSecret)));
            EXPECT_THAT(value, Not(HasSubstr("another-secret")));
        }
        EXPECT_THAT(exchange.responseBody, Not(HasSubstr(clientSecret)));
    }
}

int portOf(const std::string& baseURL)
{
    const std::string prefix = "http://127.0.0.1:";
    if (baseURL.rfind(prefix, 0) != 0) return 0;
    return std::stoi(baseURL.substr(prefix.size()));
}

TEST(ServeCommand, ServesOnAnEphemeralPortUntilSIGTERM)
{
    fexo::test::TemporaryDirectory empty; // no configuration there: the flags must do
    fexo::test::ChildProcess serve(FEXO_TOOL_PATH, {"--resources", empty.path().string(), "serve", "--port", "0",
                                                    "--client-id", clientId, "--client-secret", clientSecret});
    const std::string baseURL = serve.readLine();
    const int port = portOf(baseURL);
    ASSERT_GT(port, 0) << baseURL;

    {
        Client client(port);
        EXPECT_EQ(client.post("/api/Registration/RegisterNewDevice", registrationBody("d", "t")).status, 200);
        EXPECT_EQ(client.get("/dev/registrations").body, Json::array({registrationBody("d", "t")}));
    }
    EXPECT_EQ(serve.stop(SIGTERM), 0);
}

TEST(ServeCommand, TakesCredentialsFromTheConfigurationAndFlagsOverride)
{
    fexo::test::TemporaryDirectory resources;
    fexo::test::ConfigurationValues values;
    values.clientId = "configured-id";
    values.clientSecret = "configured-secret";
    fexo::test::installConfiguration(resources.path(), values);

    fexo::test::ChildProcess serve(FEXO_TOOL_PATH, {"serve", "--port", "0", "--resources",
                                                    resources.path().string(), "--client-secret", "flag-secret"});
    const int port = portOf(serve.readLine());
    ASSERT_GT(port, 0);
    {
        EXPECT_EQ(Client(port, {{"client_id", "configured-id"}, {"client_secret", "flag-secret"}})
                      .get("/dev/registrations").status,
                  200);
        EXPECT_EQ(Client(port, {{"client_id", "configured-id"}, {"client_secret", "configured-secret"}})
                      .get("/dev/registrations").status,
                  401);
    }
    EXPECT_EQ(serve.stop(SIGINT), 0);
}

TEST(ServeCommand, RefusesToServeWithoutCredentials)
{
    fexo::test::TemporaryDirectory empty;
    fexo::test::ChildProcess serve(FEXO_TOOL_PATH,
                                   {"--resources", empty.path().string(), "serve", "--port", "0", "--client-id", "only-id"});
    EXPECT_EQ(serve.readLine(), "");
    EXPECT_EQ(serve.stop(0), 1);
}

} // namespace
