#include <FeXONotificationService/NotificationContentProvider.hpp>
#include <FeXONotificationService/PushNotificationProvider.hpp>

#include <support/Configuration.hpp>
#include <support/LoopbackServer.hpp>
#include <support/TemporaryDirectory.hpp>

#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/URLError.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <gtest/gtest.h>

#include <future>
#include <set>
#include <thread>

namespace {

using namespace std::chrono_literals;
using fexo::Result;

constexpr auto patience = 20s;

fexo::DeviceInfo device(std::string id = "device-1")
{
    return {std::move(id), "token-1", "+4912345", "com.example.host", "iOS", "17.0", "imei-a", "imei-b", "",
            fexo::PushProvider::APNS};
}

// The content operation as any adopter gets it, over the real networking service.
struct ContentFetcher : fexo::NotificationContentProvider {
    fexo::NetworkingService service;
    const fexo::Networking& network() const override { return service; }
};

template <class T>
class Outcome {
public:
    std::function<void(Result<T>)> handler()
    {
        return [this](Result<T> result) {
            thread_ = std::this_thread::get_id();
            if (calls_.fetch_add(1) == 0) promise_.set_value(std::move(result));
        };
    }
    Result<T> wait()
    {
        auto future = promise_.get_future();
        if (future.wait_for(patience) != std::future_status::ready) throw std::runtime_error("no completion");
        auto result = future.get();
        EXPECT_TRUE(fexo::URLSession::shared().waitUntilIdle(patience));
        EXPECT_EQ(calls_.load(), 1);
        return result;
    }
    std::thread::id thread() const { return thread_; }

private:
    std::promise<Result<T>> promise_;
    std::atomic<int> calls_{0};
    std::thread::id thread_;
};

std::string json(const fexo::RegisterDeviceModel& model)
{
    return fexo::JSONEncoder::serialize(nlohmann::json(model));
}

class PushNotificationProviderTest : public testing::Test {
protected:
    void SetUp() override
    {
        server.closeConnectionsAfterEachAnswer();
        configure(server.baseURL());
    }

    void configure(const std::string& baseURL) { fexo::test::installConfiguration(directory.path(), baseURL); }

    void answer(int status, std::string body)
    {
        server.setHandler([status, body](const httplib::Request&, httplib::Response& response) {
            response.status = status;
            response.set_content(body, "application/json");
        });
    }

    Result<fexo::RegisterDeviceModel> registerDevice()
    {
        Outcome<fexo::RegisterDeviceModel> outcome;
        provider.registerDevice(device(), outcome.handler());
        return outcome.wait();
    }

    fexo::test::TemporaryDirectory directory;
    fexo::test::LoopbackServer server;
    fexo::PushNotificationProvider provider;
};

TEST_F(PushNotificationProviderTest, RegistrationSendsExactlyTheLibrarysHeadersAndEveryBodyKey)
{
    answer(200, "{}");
    Outcome<fexo::RegisterDeviceModel> outcome;
    provider.registerDevice(device(), outcome.handler());
    ASSERT_TRUE(outcome.wait().isSuccess());
    EXPECT_NE(outcome.thread(), std::this_thread::get_id());

    const auto received = server.requests();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].path, "/api/Registration/RegisterNewDevice");
    EXPECT_EQ(received[0].header("Content-Type"), "application/json");
    EXPECT_EQ(received[0].header("client_secret"), "test-client-secret-0123");
    EXPECT_EQ(received[0].header("client_id"), "test-client-id");
    for (const auto& [name, value] : received[0].headers) {
        // Everything else is the transport's own.
        static const std::set<std::string> transport{"Host", "Accept", "Accept-Encoding", "Content-Length",
                                                     "Content-Type", "client_secret", "client_id"};
        EXPECT_TRUE(transport.count(name)) << name << ": " << value;
    }
    EXPECT_EQ(fexo::JSONDecoder::parse(received[0].body),
              (nlohmann::json{{"deviceId", "device-1"}, {"registrationId", "token-1"}, {"mobileNumber", "+4912345"},
                              {"appId", "com.example.host"}, {"osType", "iOS"}, {"osVersion", "17.0"},
                              {"imeI1", "imei-a"}, {"imeI2", "imei-b"}, {"data", ""}, {"pushNotificationProvider", 2}}));
    EXPECT_TRUE(fexo::JSONDecoder::parse(received[0].body)["pushNotificationProvider"].is_number_integer());
}

TEST_F(PushNotificationProviderTest, StatusIsNeverExaminedOnlyTheBodyDecides)
{
    for (int status : {200, 400, 401, 404, 500}) {
        SCOPED_TRACE(status);
        answer(status, "{\"errorMessage\":\"Invalid token\"}");
        auto result = registerDevice();
        ASSERT_TRUE(result.isSuccess()) << result.error().description();
        EXPECT_EQ(json(result.value()), "{\"errorMessage\":\"Invalid token\"}");

        for (const char* body : {"", "null", "[]", "[{}]", "{\"errorMessage\":", "<html>", "{\"errorMessage\":5}",
                                 "{\"errors\":{}}"}) {
            SCOPED_TRACE(body);
            answer(status, body);
            auto failed = registerDevice();
            ASSERT_TRUE(failed.isFailure());
            EXPECT_NE(failed.error().as<fexo::DecodingError>(), nullptr) << failed.error().description();
        }
    }
}

TEST_F(PushNotificationProviderTest, NotificationContentIsFetchedAndDecoded)
{
    server.setHandler([](const httplib::Request& request, httplib::Response& response) {
        response.set_content(request.path == "/api/Notification/GetNotificationContent"
                                 ? "{\"id\":\"n-1\",\"data\":{\"text\":\"Hello\",\"sender\":\"Bank\"}}"
                                 : "wrong path",
                             "application/json");
    });
    Outcome<fexo::Response> outcome;
    ContentFetcher().fetchNotificationContent({"recipient-7", "registration-9"}, outcome.handler());
    auto result = outcome.wait();
    ASSERT_TRUE(result.isSuccess()) << result.error().description();
    EXPECT_EQ(result.value().id, "n-1");
    ASSERT_TRUE(result.value().data.has_value());
    EXPECT_EQ(result.value().data->sender, "Bank");
    EXPECT_EQ(fexo::JSONDecoder::parse(server.requests().at(0).body),
              (nlohmann::json{{"recipientId", "recipient-7"}, {"registrationId", "registration-9"}}));
}

TEST_F(PushNotificationProviderTest, TransportErrorIsPassedOnUnchanged)
{
    const std::string base = "http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort());
    configure(base);
    auto result = registerDevice();
    ASSERT_TRUE(result.isFailure());
    const auto* error = result.error().as<fexo::URLError>();
    ASSERT_NE(error, nullptr) << result.error().description();
    EXPECT_EQ(error->code(), fexo::URLError::cannotConnectToHost);
    EXPECT_EQ(error->failingURL(), base + "/api/Registration/RegisterNewDevice");
}

TEST_F(PushNotificationProviderTest, BackToBackRegistrationsEachGetTheirOwnAnswer)
{
    server.setHandler([](const httplib::Request& request, httplib::Response& response) {
        const auto body = fexo::JSONDecoder::parse(request.body);
        response.set_content("{\"errorMessage\":\"" + body["deviceId"].get<std::string>() + "\"}", "application/json");
    });
    std::vector<std::unique_ptr<Outcome<fexo::RegisterDeviceModel>>> outcomes;
    for (int i = 0; i < 10; ++i) {
        outcomes.push_back(std::make_unique<Outcome<fexo::RegisterDeviceModel>>());
        provider.registerDevice(device("device-" + std::to_string(i)), outcomes.back()->handler());
    }
    for (int i = 0; i < 10; ++i) {
        auto result = outcomes[i]->wait();
        ASSERT_TRUE(result.isSuccess());
        EXPECT_EQ(json(result.value()), "{\"errorMessage\":\"device-" + std::to_string(i) + "\"}");
    }
}

// A transport that answers at once with whatever the test gives it.
class ScriptedNetwork : public fexo::Networking {
public:
    ScriptedNetwork(std::optional<std::string> data, std::optional<fexo::Error> error)
        : data_(std::move(data)), error_(std::move(error))
    {
    }
    void send(const fexo::RequestProviding& request, TransferCompletion completion) const override
    {
        (void)request.urlRequest();
        completion(data_, std::nullopt, error_);
    }

private:
    std::optional<std::string> data_;
    std::optional<fexo::Error> error_;
};

TEST_F(PushNotificationProviderTest, ErrorWinsOverDataThatCameWithIt)
{
    const fexo::PushNotificationProvider scripted(std::make_shared<ScriptedNetwork>(
        "{}", fexo::URLError(fexo::URLError::networkConnectionLost, std::string("http://h/"))));
    std::optional<Result<fexo::RegisterDeviceModel>> seen;
    scripted.registerDevice(device(), [&](Result<fexo::RegisterDeviceModel> result) { seen = std::move(result); });
    ASSERT_TRUE(seen.has_value());
    ASSERT_TRUE(seen->isFailure());
    EXPECT_EQ(seen->error().as<fexo::URLError>()->code(), fexo::URLError::networkConnectionLost);
}

using PushNotificationProviderDeathTest = PushNotificationProviderTest;

TEST_F(PushNotificationProviderDeathTest, AnswerWithNeitherErrorNorDataEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const fexo::PushNotificationProvider scripted(std::make_shared<ScriptedNetwork>(std::nullopt, std::nullopt));
    EXPECT_DEATH(scripted.registerDevice(device(), [](auto) { std::_Exit(3); }), "Fatal error");
}

} // namespace
