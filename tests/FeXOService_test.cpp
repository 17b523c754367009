#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/NSException.hpp>

#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

namespace {

// The store's own rules are the repository's suite's, the inbox's and observation's theirs; the
// demo and the tool's commands drive every call end to end.
TEST(FeXOService, ReadsNothingUntilFirstUseThenWorksOnTheSharedStore)
{
    fexo::test::TemporaryDirectory directory;
    fexo::Bundle::main().setResourcesDirectory(directory.path());
    fexo::resetSharedConfigurationForTesting();
    fexo::FeXOService service; // no configuration file anywhere: construction still succeeds
    EXPECT_THROW((void)fexo::FeXOService(service).fetchAllNotifications(), fexo::NSException);

    ::setenv("FEXO_APP_GROUPS_DIR", (directory.path() / "groups").c_str(), 1);
    fexo::test::installConfiguration(directory.path());
    const fexo::Response record({}, fexo::NotificationData("text", "sender"), {}, {}, "7");
    service.write(record);
    EXPECT_EQ(fexo::FeXOService().fetchAllNotifications().value(), std::vector{record}); // another service sees it
}

} // namespace
