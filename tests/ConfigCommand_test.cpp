#include <support/ChildProcess.hpp>
#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::test::ChildProcess;
using fexo::test::TemporaryDirectory;

fexo::test::ProcessResult configCheck(const std::vector<std::string>& arguments, const std::string& resources = "")
{
    fexo::test::ProcessOptions options;
    options.environment["FEXO_RESOURCES_DIR"] = resources;
    return ChildProcess::run(FEXO_TOOL_PATH, arguments, options);
}

TEST(ConfigCommand, PrintsTheSettingsWithTheSecretMaskedFromEitherForm)
{
    for (bool binary : {false, true}) {
        TemporaryDirectory directory;
        fexo::test::writeConfigurationWithPython(directory.path(),
                        "{'FEXO_BASE_URL': 'http://127.0.0.1:8080/', 'CLIENT_SECRET': 'very-secret-value-9876', "
                        "'CLIENT_ID': 'app', 'APP_GROUP': 'group.a', 'BUNDLE_ID': 'com.a'}",
                        binary);
        for (const auto& arguments : {std::vector<std::string>{"config", "check", "--resources", directory.path()},
                                      std::vector<std::string>{"--resources", directory.path(), "config", "check"}}) {
            const auto result = configCheck(arguments);
            EXPECT_EQ(result.exitCode, 0) << result.standardError;
            EXPECT_EQ(result.standardOutput, "FEXO_BASE_URL=http://127.0.0.1:8080/\nCLIENT_SECRET=****9876\n"
                                             "CLIENT_ID=app\nAPP_GROUP=group.a\nBUNDLE_ID=com.a\n");
            EXPECT_EQ(result.standardError.find("very-secret"), std::string::npos);
        }
        // The environment serves when no option is given.
        EXPECT_EQ(configCheck({"config", "check"}, directory.path()).exitCode, 0);
    }
}

TEST(ConfigCommand, ReportsTheLibrarysExceptionExactly)
{
    TemporaryDirectory directory;
    auto result = configCheck({"config", "check", "--resources", directory.path()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardError,
              "fexo: NSGenericException:  FeXO notifications framework could not find a valid FeXOService-Info.plist in your project.\n");

    fexo::test::writeConfigurationWithPython(directory.path(), "{'FEXO_BASE_URL': 'u', 'CLIENT_SECRET': 's', 'CLIENT_ID': 5, 'BUNDLE_ID': ''}", true);
    result = configCheck({"config", "check", "--resources", directory.path()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardError, "fexo: NSObjectNotAvailableException: CLIENT_ID is not found in FeXOService-Info.plist\n");
    EXPECT_EQ(result.standardOutput, "");
}

TEST(ConfigCommand, UsageErrorsExitOne)
{
    EXPECT_EQ(configCheck({"config"}).exitCode, 1);
    EXPECT_EQ(configCheck({"no-such-command"}).exitCode, 1);
    const auto help = configCheck({"config", "check", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.standardOutput.find("FeXOService-Info.plist"), std::string::npos);
}

} // namespace
