#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/NSException.hpp>

#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::FeXOService;
using fexo::Response;

// Registration goes through the tool's register command, which drives this facade.
TEST(FeXOService, ReadsNothingUntilFirstUseThenWorksOnTheSharedStoreUnderTheRecordsId)
{
    fexo::test::TemporaryDirectory directory;
    fexo::Bundle::main().setResourcesDirectory(directory.path());
    fexo::resetSharedConfigurationForTesting();
    FeXOService service; // no configuration file anywhere: construction still succeeds
    EXPECT_THROW((void)FeXOService(service).fetchAllNotifications(), fexo::NSException);

    ::setenv("FEXO_APP_GROUPS_DIR", (directory.path() / "groups").c_str(), 1);
    fexo::test::installConfiguration(directory.path(), fexo::test::ConfigurationValues{});
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
    ::unsetenv("FEXO_APP_GROUPS_DIR");
}

} // namespace
