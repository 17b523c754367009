// The fexo tool as a whole: every command explains itself, and the demo runs end to end.
#include <support/ToolSandbox.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::test::ToolSandbox;

TEST(FexoTool, EveryCommandHasHelp)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    const std::vector<std::vector<std::string>> commands{
        {}, {"config"}, {"config", "check"}, {"register"}, {"handle-push"}, {"list"}, {"show"}, {"mark-read"},
        {"delete"}, {"delete-all"}, {"logout"}, {"write"}, {"serve"}, {"demo"}};
    for (auto arguments : commands) {
        const std::string name = arguments.empty() ? "fexo" : arguments.back();
        arguments.push_back("--help");
        const auto result = sandbox.run(arguments);
        EXPECT_EQ(result.exitCode, 0) << name << ": " << result.standardError;
        EXPECT_NE(result.standardOutput.find("Usage:"), std::string::npos) << name;
        EXPECT_NE(result.standardOutput.find(name), std::string::npos) << name;
    }
}

TEST(FexoTool, TheDemoRunsEveryStep)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    const auto result = sandbox.run({"demo"});
    EXPECT_EQ(result.exitCode, 0) << result.standardOutput << result.standardError;
    EXPECT_NE(result.standardOutput.find("demo: every step did what it should"), std::string::npos)
        << result.standardOutput;
}

} // namespace
