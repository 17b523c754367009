// The fexo tool as a whole: every command explains itself, serve and demo are handed over to
// fexo-devserver with their options, and the demo runs end to end.
#include <support/ToolSandbox.hpp>

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

TEST(FexoTool, TheDemoRunsEveryStep)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    const auto result = sandbox.run({"demo"});
    EXPECT_EQ(result.exitCode, 0) << result.standardOutput << result.standardError;
    EXPECT_NE(result.standardOutput.find("demo: every step did what it should"), std::string::npos);
}

} // namespace
