// The fexo tool as a whole: every command explains itself, and the demo runs end to end.
#include <support/TemporaryDirectory.hpp>
#include <support/ToolSandbox.hpp>

#include <fexo/DevelopmentServerHandOff.hpp>

#include <gtest/gtest.h>

#include <filesystem>

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

TEST(FexoTool, ServeAndDemoKeepTheirOptionsAndHelpAfterTheHandOver)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    const auto top = sandbox.run({"--help"});
    EXPECT_NE(top.standardOutput.find("\n  serve "), std::string::npos) << top.standardOutput;
    EXPECT_NE(top.standardOutput.find("\n  demo "), std::string::npos) << top.standardOutput;

    for (const auto& arguments :
         {std::vector<std::string>{"serve", "--help"}, {"--resources", "/nonexistent", "serve", "--help"},
          {"-h", "serve"}}) {
        const auto result = sandbox.run(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.standardError;
        EXPECT_NE(result.standardOutput.find("--port"), std::string::npos) << result.standardOutput;
    }
    const auto refused = sandbox.run({"serve", "--port", "70000"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.standardError.find("--port"), std::string::npos) << refused.standardError;
}

TEST(FexoTool, WithoutTheSiblingServeFailsWithOneLine)
{
    fexo::test::TemporaryDirectory directory;
    const auto alone = directory.path() / "fexo";
    std::filesystem::copy_file(FEXO_TOOL_PATH, alone);
    for (const char* command : {"serve", "demo"}) {
        const auto result = fexo::test::ChildProcess::run(alone, {"--app-groups", directory.path().string(), command});
        EXPECT_EQ(result.exitCode, 1) << command;
        EXPECT_EQ(result.standardOutput, "") << command;
        EXPECT_EQ(result.standardError,
                  "fexo: cannot run " + (directory.path() / "fexo-devserver").string() + ": No such file or directory\n")
            << command;
    }
}

TEST(FexoTool, TheCommandIsTheFirstArgumentThatIsNoOptionNorItsValue)
{
    const std::vector<std::pair<std::vector<const char*>, bool>> cases{
        {{"serve"}, true},
        {{"demo"}, true},
        {{"--resources", "r", "--app-groups", "g", "serve", "--port", "0"}, true},
        {{"--resources=r", "demo"}, true},
        {{"--help", "serve"}, true},
        {{"--resources", "serve", "list"}, false},
        {{"--app-groups", "demo", "handle-push"}, false},
        {{"list", "serve"}, false},
        {{"--", "serve"}, false},
        {{"--help"}, false},
        {{}, false},
    };
    for (const auto& [arguments, expected] : cases) {
        std::vector<const char*> argv{"fexo"};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        std::string shown;
        for (const char* argument : arguments) shown += std::string(" ") + argument;
        EXPECT_EQ(fexo::tool::choosesDevelopmentServerCommand(static_cast<int>(argv.size()), argv.data()), expected)
            << shown;
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
