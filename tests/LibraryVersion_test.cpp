// One version, set in CMakeLists.txt, reaches the header, the C and C++ functions and every
// tool's --version.
#include <FeXONotificationService/LibraryVersion.hpp>
#include <FeXONotificationService/fexo.h>

#include <support/ChildProcess.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

TEST(LibraryVersion, IsTheProjectsInTheHeaderTheFunctionsAndEveryTool)
{
    std::stringstream cmake;
    cmake << std::ifstream(std::string(FEXO_TEST_SOURCE_DIR) + "/CMakeLists.txt").rdbuf();
    const std::string text = cmake.str();
    std::smatch match;
    ASSERT_TRUE(std::regex_search(text, match, std::regex(R"(project\(FeXONotificationService VERSION ([0-9.]+))")));
    const std::string version = match[1];
    EXPECT_EQ(std::to_string(FEXO_VERSION_MAJOR) + "." + std::to_string(FEXO_VERSION_MINOR) + "." +
                  std::to_string(FEXO_VERSION_PATCH),
              version);
    EXPECT_EQ(FEXO_VERSION_STRING, version);
    EXPECT_EQ(fexo::libraryVersion(), version);
    EXPECT_EQ(std::string(fexo_version()), version);

    const std::filesystem::path tools = std::filesystem::path(FEXO_TOOL_PATH).parent_path();
    for (const std::string name : {"fexo", "fexo-devserver", "fexo-agent"}) {
        const auto result = fexo::test::ChildProcess::run(tools / name, {"--version"});
        EXPECT_EQ(result.exitCode, 0) << name;
        EXPECT_EQ(result.standardOutput, name + " " + version + "\n");
    }
    // Through fexo's hand-over the sibling answers for itself.
    EXPECT_EQ(fexo::test::ChildProcess::run(FEXO_TOOL_PATH, {"agent", "--version"}).standardOutput,
              "fexo-agent " + version + "\n");
}
