// One version, set in the build, reaches the C++ and C functions and every tool's --version.
#include <FeXONotificationService/LibraryVersion.hpp>
#include <FeXONotificationService/fexo.h>

#include <support/ChildProcess.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

namespace {

// The version of project() in the top CMakeLists.txt, the one place it is written.
std::string projectVersion()
{
    std::ifstream file(std::string(FEXO_TEST_SOURCE_DIR) + "/CMakeLists.txt");
    std::stringstream text;
    text << file.rdbuf();
    std::smatch match;
    const std::string content = text.str();
    if (!std::regex_search(content, match, std::regex(R"(project\(FeXONotificationService VERSION ([0-9.]+))")))
        return "";
    return match[1];
}

TEST(LibraryVersion, IsTheProjectsVersionInTheHeaderTheCAndTheCPlusPlusFunctions)
{
    const std::string version = projectVersion();
    ASSERT_FALSE(version.empty());
    EXPECT_EQ(FEXO_VERSION_STRING, version);
    EXPECT_EQ(std::to_string(FEXO_VERSION_MAJOR) + "." + std::to_string(FEXO_VERSION_MINOR) + "." +
                  std::to_string(FEXO_VERSION_PATCH),
              version);
    EXPECT_EQ(fexo::libraryVersion(), version);
    EXPECT_EQ(std::string(fexo_version()), version);
}

TEST(LibraryVersion, EveryToolPrintsItsNameAndTheVersion)
{
    const std::filesystem::path tools = std::filesystem::path(FEXO_TOOL_PATH).parent_path();
    const std::string version = projectVersion();
    for (const std::string name : {"fexo", "fexo-devserver", "fexo-agent"}) {
        const auto result = fexo::test::ChildProcess::run(tools / name, {"--version"});
        EXPECT_EQ(result.exitCode, 0) << name;
        EXPECT_EQ(result.standardOutput, name + " " + version + "\n");
    }
    // Through fexo's hand-over, the sibling answers for itself.
    EXPECT_EQ(fexo::test::ChildProcess::run(FEXO_TOOL_PATH, {"agent", "--version"}).standardOutput,
              "fexo-agent " + version + "\n");
}

} // namespace
