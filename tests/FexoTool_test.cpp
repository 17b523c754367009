// The fexo tool as a whole: every command explains itself, serve and demo are handed over to
// fexo-devserver with their options, and the demo runs end to end.
#include <support/ToolSandbox.hpp>

#include <fexo/CommandHandOff.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::test::ToolSandbox;

TEST(FexoTool, EveryCommandExplainsItselfAndUsageErrorsExitOne)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    const auto help = sandbox.run({"register", "--help"});
    EXPECT_EQ(help.exitCode, 0) << help.standardError;
    EXPECT_NE(help.standardOutput.find("Usage:"), std::string::npos);
    // Help for a handed-over command is fexo-devserver's, whichever way it is asked for.
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"-h", "serve"}, {"--resources", "/none", "serve", "-h"}}) {
        EXPECT_NE(sandbox.run(arguments).standardOutput.find("--port"), std::string::npos);
    }
    EXPECT_NE(sandbox.run({"--help"}).standardOutput.find("\n  demo "), std::string::npos);
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"config"}, {"no-such"}, {"serve", "--port", "70000"}}) {
        EXPECT_EQ(sandbox.run(arguments).exitCode, 1) << arguments[0];
    }
}

// Messages say what the user typed and what is allowed, in plain words and numbers.
TEST(FexoTool, UsageAndRefusalsNameTheCommandAsTypedAndSayWhatIsAllowed)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    const auto limit = sandbox.run({"list", "--limit", "0"});
    EXPECT_EQ(limit.exitCode, 1);
    EXPECT_EQ(limit.standardError.substr(0, limit.standardError.find('\n')),
              "--limit: a page holds a whole number of records, 1 or more, not 0");
    EXPECT_NE(sandbox.run({"register", "--help"}).standardOutput.find("--provider ENUM:fcm|apns|pushwoosh REQUIRED"),
              std::string::npos);
    EXPECT_EQ(
        sandbox.run({"register", "--token", "t", "--device-id", "d", "--provider", "gcm"}).standardError.substr(0, 55),
        "--provider: the push provider is fcm, apns or pushwoosh");
    const std::filesystem::path devserver = std::filesystem::path(FEXO_TOOL_PATH).parent_path() / "fexo-devserver";
    const auto direct = fexo::test::ChildProcess::run(devserver, {"--help"}).standardOutput;
    EXPECT_EQ(direct.rfind("fexo-devserver: ", 0), 0u) << direct;
    EXPECT_NE(direct.find("Usage: fexo-devserver "), std::string::npos) << direct;
    const auto handedOver = sandbox.run({"serve", "--help"}).standardOutput;
    EXPECT_NE(handedOver.find("Usage: fexo serve "), std::string::npos) << handedOver;
    EXPECT_EQ(fexo::test::ChildProcess::run(devserver, {"serve", "--port", "x"}).standardError.rfind("--port", 0), 0u);
}

TEST(FexoTool, TheCommandIsTheFirstArgumentThatIsNoOptionNorItsValue)
{
    // The name decides both the hand-over (serve, demo, agent) and whether only handle-push is built.
    const std::vector<std::pair<std::vector<const char*>, std::string_view>> cases{
        {{"serve"}, "serve"},
        {{"--resources", "r", "--app-groups", "g", "serve", "--port", "0"}, "serve"},
        {{"--resources=r", "demo"}, "demo"},
        {{"--help", "serve"}, "serve"},
        {{"--resources", "serve", "list"}, "list"},
        {{"--app-groups", "handle-push", "config"}, "config"},
        {{"--help", "handle-push", "push.json"}, "handle-push"},
        {{"--", "serve"}, ""},
        {{"--help"}, ""},
        {{}, ""},
        {{"agent", "push"}, "agent"}};
    for (const auto& [arguments, expected] : cases) {
        std::vector<const char*> argv{"fexo"};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        const int argc = static_cast<int>(argv.size());
        EXPECT_EQ(fexo::tool::chosenCommandName(argc, argv.data()), expected);
        const bool handedOver = expected == "serve" || expected == "demo" || expected == "agent";
        EXPECT_EQ(fexo::tool::chosenHandedOverCommand(argc, argv.data()) != nullptr, handedOver) << expected;
    }
}

TEST(FexoTool, TheDemoRunsEveryStep)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    const auto result = sandbox.run({"demo"});
    EXPECT_EQ(result.exitCode, 0) << result.standardOutput << result.standardError;
    EXPECT_NE(result.standardOutput.find("demo: every step did what it should"), std::string::npos);
}

} // namespace
