#include <FeXONotificationService/PushNotificationProvider.hpp>

#include <support/Completion.hpp>
#include <support/Configuration.hpp>
#include <support/LoopbackServer.hpp>
#include <support/ResultMatchers.hpp>
#include <support/TemporaryDirectory.hpp>

#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::Result;
using fexo::test::IsFailureWith;
using fexo::test::IsSuccess;

const fexo::DeviceInfo device("device-1", "token-1", "", "", "", "", "", "", "", fexo::PushProvider::APNS);

class PushNotificationProviderTest : public testing::Test {
protected:
    void SetUp() override
    {
        server.closeConnectionsAfterEachAnswer();
        fexo::test::installConfiguration(directory.path(), {.baseURL = server.baseURL()});
    }

    Result<fexo::RegisterDeviceModel> registerDevice()
    {
        fexo::test::Completion<Result<fexo::RegisterDeviceModel>> completion;
        provider.registerDevice(device, completion.handler());
        auto result = completion.wait();
        EXPECT_TRUE(fexo::URLSession::shared().waitUntilIdle(fexo::test::patience));
        EXPECT_EQ(completion.calls(), 1);
        EXPECT_NE(completion.thread(), std::this_thread::get_id());
        return result.value_or(Result<fexo::RegisterDeviceModel>::failure(fexo::URLError(fexo::URLError::unknown, {})));
    }

    fexo::test::TemporaryDirectory directory;
    fexo::test::LoopbackServer server;
    fexo::PushNotificationProvider provider;
};

// The request itself is the endpoint's; sending it as it stands is the session's.
TEST_F(PushNotificationProviderTest, RegistrationPostsTheDeviceAndDecodesTheAnswer)
{
    server.setHandler([](const httplib::Request&, httplib::Response& response) {
        response.set_content(R"({"errorMessage":"m"})", "application/json");
    });
    const auto result = registerDevice();
    ASSERT_THAT(result, IsSuccess());
    EXPECT_EQ(fexo::JSONEncoder{}.encode(result.value()), R"({"errorMessage":"m"})");
    const auto received = server.requests().at(0);
    EXPECT_EQ(received.method + " " + received.path, "POST /api/Registration/RegisterNewDevice");
    EXPECT_EQ(fexo::JSONDecoder::parse(received.body).at("deviceId"), "device-1");
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
    fexo::test::Completion<Result<fexo::RegisterDeviceModel>> completion;
    scripted.registerDevice(device, completion.handler());
    EXPECT_THAT(*completion.wait(), IsFailureWith(fexo::URLError::networkConnectionLost));
}

using PushNotificationProviderDeathTest = PushNotificationProviderTest;

TEST_F(PushNotificationProviderDeathTest, AnswerWithNeitherErrorNorDataEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const fexo::PushNotificationProvider scripted(std::make_shared<ScriptedNetwork>(std::nullopt, std::nullopt));
    EXPECT_DEATH(scripted.registerDevice(device, [](auto) { std::_Exit(3); }), "Fatal error");
}

} // namespace
