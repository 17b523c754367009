// The command tree that the build turns into manual pages and the shell completion.
#include <common/CommandTree.hpp>

#include <support/ChildProcess.hpp>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

const nlohmann::json* named(const nlohmann::json& list, const std::string& name)
{
    for (const auto& entry : list) {
        if (entry.contains("name") ? entry["name"] == name : entry["names"].back() == name) return &entry;
    }
    return nullptr;
}

TEST(CommandTree, DescribesOptionsArgumentsAndCommandsAndLeavesHiddenOnesOut)
{
    CLI::App app("the top");
    std::string text;
    std::string provider;
    bool flag = false;
    app.add_option("-r,--resources", text, "Where");
    auto* command = app.add_subcommand("register", "Register");
    command->add_option("--provider", provider, "Which")
        ->transform(CLI::CheckedTransformer(std::map<std::string, int>{{"fcm", 0}, {"apns", 1}}, CLI::ignore_case));
    command->add_flag("--json", flag, "As JSON");
    command->add_option("FILE", text, "The input")->required();
    command->add_subcommand("inner", "Nested");
    app.add_flag("--secret", flag, "Hidden")->group("");
    app.add_subcommand("hidden", "Hidden")->group("");
    app.add_subcommand("serve", "Elsewhere")->prefix_command();

    const auto tree = fexo::tool::commandTree(app, {{"serve", "fexo-devserver"}, {"register", "not-handed-over"}});
    EXPECT_EQ(tree["description"], "the top");
    const auto* resources = named(tree["options"], "--resources");
    ASSERT_NE(resources, nullptr);
    EXPECT_EQ((*resources)["names"], nlohmann::json({"-r", "--resources"}));
    EXPECT_EQ((*resources)["value"], "TEXT");
    EXPECT_EQ(named(tree["options"], "--secret"), nullptr);
    ASSERT_EQ(tree["commands"].size(), 2u); // "hidden" left out

    const auto& registerCommand = tree["commands"][0];
    EXPECT_FALSE(registerCommand.contains("handed_over_to")); // it passes nothing on
    EXPECT_EQ((*named(registerCommand["options"], "--provider"))["choices"], nlohmann::json({"apns", "fcm"}));
    EXPECT_TRUE((*named(registerCommand["options"], "--json"))["value"].is_null());
    ASSERT_EQ(registerCommand["arguments"].size(), 1u);
    EXPECT_EQ(registerCommand["arguments"][0]["name"], "FILE");
    EXPECT_TRUE(registerCommand["arguments"][0]["required"]);
    EXPECT_EQ(registerCommand["commands"][0]["name"], "inner");
    EXPECT_EQ(tree["commands"][1]["handed_over_to"], "fexo-devserver");
}

TEST(CommandTree, EachToolPrintsItsOwnAndFexoNamesWhereItHandsCommandsOver)
{
    const std::filesystem::path tools = std::filesystem::path(FEXO_TOOL_PATH).parent_path();
    std::map<std::string, nlohmann::json> trees;
    for (const std::string name : {"fexo", "fexo-devserver", "fexo-agent"}) {
        const auto result = fexo::test::ChildProcess::run(tools / name, {"--command-tree"});
        ASSERT_EQ(result.exitCode, 0) << name;
        trees[name] = nlohmann::json::parse(result.standardOutput);
        EXPECT_NE(named(trees[name]["options"], "--version"), nullptr) << name;
    }
    EXPECT_EQ((*named(trees["fexo"]["commands"], "serve"))["handed_over_to"], "fexo-devserver");
    EXPECT_EQ((*named(trees["fexo"]["commands"], "agent"))["handed_over_to"], "fexo-agent");
    EXPECT_NE(named((*named(trees["fexo"]["commands"], "store"))["commands"], "repair"), nullptr);
    EXPECT_NE(named((*named(trees["fexo-devserver"]["commands"], "serve"))["options"], "--port"), nullptr);
    EXPECT_NE(named((*named(trees["fexo-agent"]["commands"], "run"))["options"], "--time-limit"), nullptr);
    // The hidden flag itself is no part of the command line it describes.
    EXPECT_EQ(named(trees["fexo"]["options"], "--command-tree"), nullptr);
}

} // namespace
