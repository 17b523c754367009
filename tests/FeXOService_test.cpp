#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/NSException.hpp>
#include <FeXOPlatform/UIDevice.hpp>
#include <FeXOPlatform/URLError.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <support/Configuration.hpp>
#include <support/LoopbackServer.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace {

using namespace std::chrono_literals;
using fexo::FeXOService;
using fexo::Response;
using fexo::Result;
using fexo::RegisterDeviceModel;

class FeXOServiceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        server.closeConnectionsAfterEachAnswer();
        ::setenv("FEXO_APP_GROUPS_DIR", (directory.path() / "groups").c_str(), 1);
        values.baseURL = server.baseURL();
        fexo::test::installConfiguration(directory.path(), values);
    }
    void TearDown() override { ::unsetenv("FEXO_APP_GROUPS_DIR"); }

    // Registers and waits; the completion's thread is kept in `completionThread`.
    Result<RegisterDeviceModel> registerDevice(std::string token, std::string deviceID, std::string imei1,
                                               std::string imei2, std::string mobile, fexo::PushProvider provider)
    {
        auto promise = std::make_shared<std::promise<Result<RegisterDeviceModel>>>();
        auto future = promise->get_future();
        FeXOService().registerDevice(std::move(token), std::move(deviceID), std::move(imei1), std::move(imei2),
                                     std::move(mobile), provider, [this, promise](Result<RegisterDeviceModel> result) {
                                         completionThread = std::this_thread::get_id();
                                         promise->set_value(std::move(result));
                                     });
        if (future.wait_for(20s) != std::future_status::ready) throw std::runtime_error("no completion");
        EXPECT_TRUE(fexo::URLSession::shared().waitUntilIdle(20s));
        return future.get();
    }

    fexo::test::TemporaryDirectory directory;
    fexo::test::LoopbackServer server;
    fexo::test::ConfigurationValues values;
    std::thread::id completionThread;
};

TEST_F(FeXOServiceTest, RegistrationSendsTheDeviceWithTheConfiguredAppAndThisSystem)
{
    server.setHandler([](const httplib::Request&, httplib::Response& response) {
        response.status = 400;
        response.set_content(R"({"errorMessage":"Validation failed","errors":[{"field":"imeI1","errorMessage":"bad"}]})",
                             "application/json");
    });
    const auto result = registerDevice("push-token", "device-9", "", "imei-2", "", fexo::PushProvider::pushWoosh);
    ASSERT_TRUE(result.isSuccess()) << result.error().description();
    EXPECT_EQ(nlohmann::json::parse(fexo::JSONEncoder{}.encode(result.value())),
              nlohmann::json::parse(R"({"errorMessage":"Validation failed","errors":[{"field":"imeI1","errorMessage":"bad"}]})"));
    EXPECT_NE(completionThread, std::this_thread::get_id());

    const auto request = server.requests().at(0);
    EXPECT_EQ(request.path, "/api/Registration/RegisterNewDevice");
    EXPECT_EQ(fexo::JSONDecoder::parse(request.body), (nlohmann::json{
        {"deviceId", "device-9"}, {"registrationId", "push-token"}, {"mobileNumber", ""}, {"appId", values.bundleId},
        {"osType", "iOS"}, {"osVersion", fexo::UIDevice::current().systemVersion()}, {"imeI1", ""},
        {"imeI2", "imei-2"}, {"data", ""}, {"pushNotificationProvider", 3}}));
    EXPECT_FALSE(fexo::UIDevice::current().systemVersion().empty());
}

TEST_F(FeXOServiceTest, RegistrationFailuresComeThroughTheCompletionUnchanged)
{
    server.setHandler([](const httplib::Request&, httplib::Response& response) { response.set_content("[]", "application/json"); });
    auto result = registerDevice("t", "d", "", "", "", fexo::PushProvider::FCM);
    ASSERT_TRUE(result.isFailure());
    EXPECT_NE(result.error().as<fexo::DecodingError>(), nullptr);

    values.baseURL = "http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort());
    fexo::test::installConfiguration(directory.path(), values);
    result = registerDevice("t", "d", "", "", "", fexo::PushProvider::FCM);
    ASSERT_TRUE(result.isFailure());
    ASSERT_NE(result.error().as<fexo::URLError>(), nullptr);
    EXPECT_EQ(result.error().localizedDescription(), "Could not connect to the server.");
}

TEST_F(FeXOServiceTest, LocalOperationsWorkOnTheSharedStoreUnderTheRecordsId)
{
    FeXOService service;
    EXPECT_EQ(service.fetchAllNotifications(), std::vector<Response>{});
    service.logout(); // nothing to delete

    const Response record({}, fexo::NotificationData("text", "sender"), {}, {}, "7");
    service.write(record);
    EXPECT_EQ(FeXOService().fetchNotification("7"), record); // another service sees it at once
    service.markNotificationAsRead("7");
    EXPECT_EQ(service.fetchNotification("7")->isRead, true);
    service.deleteNotification("7");
    EXPECT_EQ(service.fetchNotification("7"), std::nullopt);
    service.deleteNotification("7"); // silent

    testing::internal::CaptureStdout();
    service.markNotificationAsRead(" 7");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Item Not Found!\n");
}

TEST(FeXOServiceConstruction, ReadsNothingUntilFirstUse)
{
    fexo::test::TemporaryDirectory empty;
    fexo::Bundle::main().setResourcesDirectory(empty.path());
    fexo::resetSharedConfigurationForTesting();
    FeXOService service; // no configuration file anywhere: construction still succeeds
    FeXOService copy = service;
    EXPECT_THROW((void)copy.fetchAllNotifications(), fexo::NSException);
}

TEST(FeXOServiceDeathTest, AnAppGroupThatCannotBeOpenedEndsTheProcessOnFirstUse)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    fexo::test::TemporaryDirectory directory;
    fexo::test::ConfigurationValues values;
    values.appGroup = "../escape";
    fexo::test::installConfiguration(directory.path(), values);
    ::setenv("FEXO_APP_GROUPS_DIR", directory.path().c_str(), 1);
    FeXOService service;
    EXPECT_DEATH(service.logout(), "Fatal error: App Group Not Found \\.\\./escape");
    ::unsetenv("FEXO_APP_GROUPS_DIR");
}

} // namespace
