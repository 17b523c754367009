#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/NSException.hpp>
#include <FeXOPlatform/UIDevice.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <support/Completion.hpp>
#include <support/Configuration.hpp>
#include <support/LoopbackServer.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::FeXOService;
using fexo::Response;

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

    fexo::test::TemporaryDirectory directory;
    fexo::test::LoopbackServer server;
    fexo::test::ConfigurationValues values;
};

TEST_F(FeXOServiceTest, RegistrationSendsTheDeviceWithTheConfiguredAppAndThisSystem)
{
    server.setHandler([](const httplib::Request&, httplib::Response& response) { response.set_content("{}", "application/json"); });
    fexo::test::Completion<fexo::Result<fexo::RegisterDeviceModel>> done;
    FeXOService().registerDevice("push-token", "device-9", "", "imei-2", "", fexo::PushProvider::pushWoosh, done.handler());
    ASSERT_TRUE(done.wait()->isSuccess());
    EXPECT_TRUE(fexo::URLSession::shared().waitUntilIdle(fexo::test::patience));
    EXPECT_EQ(fexo::JSONDecoder::parse(server.requests().at(0).body), (nlohmann::json{
        {"deviceId", "device-9"}, {"registrationId", "push-token"}, {"mobileNumber", ""}, {"appId", values.bundleId},
        {"osType", "iOS"}, {"osVersion", fexo::UIDevice::current().systemVersion()}, {"imeI1", ""},
        {"imeI2", "imei-2"}, {"data", ""}, {"pushNotificationProvider", 3}}));
}

TEST_F(FeXOServiceTest, LocalOperationsWorkOnTheSharedStoreUnderTheRecordsId)
{
    FeXOService service;
    EXPECT_EQ(service.fetchAllNotifications(), std::vector<Response>{});
    const Response record({}, fexo::NotificationData("text", "sender"), {}, {}, "7");
    service.write(record);
    EXPECT_EQ(FeXOService().fetchNotification("7"), record); // another service sees it at once
    service.markNotificationAsRead("7");
    EXPECT_EQ(service.fetchNotification("7")->isRead, true);
    service.deleteNotification("7");
    EXPECT_EQ(service.fetchNotification("7"), std::nullopt);
    service.write(record);
    service.logout();
    EXPECT_EQ(service.fetchAllNotifications(), std::vector<Response>{});
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

} // namespace
