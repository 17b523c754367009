// `fexo config check`: the configuration as the library loads it, told without raising, and
// shown so that neither the secret nor a value's control characters reach the terminal.
#include <support/ToolSandbox.hpp>

#include <gtest/gtest.h>

namespace {

// Both forms of the file are the property-list reader's; the binary one can carry controls. The
// messages of a broken file are the library's; the command tells them on one line and exits 1.
TEST(ConfigCommand, PrintsTheSettingsWithTheSecretMaskedAndControlsEscapedOrTheLibrarysException)
{
    fexo::test::ToolSandbox sandbox(FEXO_TOOL_PATH);
    const std::tuple<std::string, int, std::string, std::string> cases[] = {
        {"{'FEXO_BASE_URL': 'http://127.0.0.1:8080/', 'CLIENT_SECRET': 'very-secret-value-9876', "
         "'CLIENT_ID': 'app\\nCLIENT_ID=forged', 'APP_GROUP': 'g\\x1b]0;title\\x07', 'BUNDLE_ID': 'com.\\u00e9'}",
         0,
         "FEXO_BASE_URL=http://127.0.0.1:8080/\nCLIENT_SECRET=****9876\nCLIENT_ID=app\\nCLIENT_"
         "ID=forged\nAPP_GROUP=g\\x1B]0;title\\x07\nBUNDLE_ID=com.\u00e9\n",
         ""},
        {"{'FEXO_BASE_URL': 'u', 'CLIENT_ID': 5}", 1, "",
         "fexo: NSObjectNotAvailableException: CLIENT_SECRET is not found in FeXOService-Info.plist\n"},
    };
    for (const auto& [dictionary, exitCode, printed, error] : cases) {
        fexo::test::writeConfigurationWithPython(sandbox.resources(), dictionary, true);
        const auto result = sandbox.run({"--resources", sandbox.resources(), "config", "check"});
        EXPECT_EQ(std::tie(result.exitCode, result.standardOutput, result.standardError),
                  std::tie(exitCode, printed, error));
    }
}

TEST(ConfigCommand, WarnsWhenTheSecretWouldTravelInClear)
{
    fexo::test::ToolSandbox sandbox(FEXO_TOOL_PATH);
    const std::pair<const char*, bool> cases[] = {
        {"HTTP://10.0.0.1:8080", true}, {"http://[::ffff:10.0.0.1]", true}, {"http://127.0.0.2:8080/", false},
        {"http://localhost", false},    {"http://[::1]:80", false},         {"https://example.com", false},
    };
    for (const auto& [baseURL, warned] : cases) {
        sandbox.configure(baseURL);
        const auto result = sandbox.run({"config", "check"});
        EXPECT_EQ(result.exitCode, 0) << baseURL;
        EXPECT_EQ(result.standardError.find("not a loopback address: the client secret would travel in clear") !=
                      std::string::npos,
                  warned)
            << baseURL << result.standardError;
    }
}

} // namespace
