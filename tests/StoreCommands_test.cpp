// The app side's store commands, each run as its own process against one app-group store.
#include <support/LoopbackServer.hpp>
#include <support/ToolSandbox.hpp>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

using fexo::test::outputLines;
using fexo::test::ToolSandbox;
using nlohmann::json;

class StoreCommands : public ::testing::Test {
protected:
    StoreCommands() { sandbox.configure("http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort())); }

    void write(const json& record) const
    {
        const auto result = sandbox.run({"write"}, record.dump());
        ASSERT_EQ(result.exitCode, 0) << result.standardError;
    }

    json list() const
    {
        const auto result = sandbox.run({"list", "--json"});
        EXPECT_EQ(result.exitCode, 0) << result.standardError;
        return json::parse(result.standardOutput, nullptr, false);
    }

    std::vector<std::string> listedIds() const
    {
        std::vector<std::string> ids;
        for (const json& record : list()) ids.push_back(record.value("id", "(none)"));
        return ids;
    }

    ToolSandbox sandbox{FEXO_TOOL_PATH};
};

json record(const std::string& id, std::optional<double> createdAt = std::nullopt, bool isRead = false)
{
    json value{{"id", id}, {"data", {{"sender", "sender " + id}, {"text", "text " + id}}}, {"isRead", isRead}};
    if (createdAt) value["createdAt"] = *createdAt;
    return value;
}

TEST_F(StoreCommands, WriteRefusesMalformedRecordsAndWritesNothing)
{
    const struct {
        std::string input;
        std::string description;
    } cases[] = {
        {R"({"id":5})", R"(fexo: typeMismatch(String, Context(codingPath: ["id"], )"},
        {R"({"id":"a","data":{"text":["x"]}})", R"(fexo: typeMismatch(String, Context(codingPath: ["data", "text"], )"},
        {"not json", "fexo: dataCorrupted(Context(codingPath: [], debugDescription: \"The given data was not valid JSON."},
    };
    for (const auto& c : cases) {
        const auto result = sandbox.run({"write"}, c.input);
        EXPECT_EQ(result.exitCode, 1) << c.input;
        EXPECT_EQ(result.standardError.rfind(c.description, 0), 0u) << result.standardError;
        EXPECT_EQ(result.standardOutput, "");
    }
    EXPECT_EQ(list(), json::array());
}

TEST_F(StoreCommands, ListShowsNewestFirstAndUndatedLast)
{
    write(record("a", 100.0));
    write(record("b"));
    write(record("c", 300.5, true));
    write(record("d", 200.0));
    write(record("e"));

    const auto ids = listedIds();
    ASSERT_EQ(ids.size(), 5u);
    EXPECT_EQ(std::vector<std::string>(ids.begin(), ids.begin() + 3), (std::vector<std::string>{"c", "d", "a"}));
    EXPECT_EQ(std::set<std::string>(ids.begin() + 3, ids.end()), (std::set<std::string>{"b", "e"}));
    // --json gives the records in their stored form.
    EXPECT_EQ(list()[0], record("c", 300.5, true));

    const auto table = sandbox.run({"list"});
    EXPECT_EQ(table.exitCode, 0);
    const auto lines = outputLines(table.standardOutput);
    ASSERT_EQ(lines.size(), 7u) << table.standardOutput;
    EXPECT_EQ(lines[0].rfind("ID", 0), 0u);
    for (std::size_t row = 0; row < 3; ++row) {
        EXPECT_EQ(lines[1 + row].rfind(ids[row] + " ", 0), 0u) << lines[1 + row];
        EXPECT_NE(lines[1 + row].find("text " + ids[row]), std::string::npos) << lines[1 + row];
    }
    EXPECT_EQ(lines.back(), "5 notifications, 4 unread");

    ASSERT_EQ(sandbox.run({"delete-all"}).exitCode, 0);
    write(record("only"));
    EXPECT_EQ(outputLines(sandbox.run({"list"}).standardOutput).back(), "1 notification, 1 unread");
}

TEST_F(StoreCommands, ShowAndMarkReadTellAMissingRecordFromAPresentOne)
{
    auto result = sandbox.run({"show", "7"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardError, "fexo: no notification with id \"7\"\n");
    EXPECT_EQ(result.standardOutput, "");

    result = sandbox.run({"mark-read", "7"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardOutput, "Item Not Found!\n");
    EXPECT_EQ(list(), json::array());

    write(record("7", 10.0));
    result = sandbox.run({"show", "7"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(json::parse(result.standardOutput), record("7", 10.0));

    result = sandbox.run({"mark-read", "7"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_EQ(json::parse(sandbox.run({"show", "7"}).standardOutput), record("7", 10.0, true));
}

TEST_F(StoreCommands, DeletionAndLogoutTouchOnlyNotificationRecords)
{
    fexo::test::LoopbackServer server;
    sandbox.configure(server.baseURL());
    const auto store = sandbox.store();
    // Keys that only look like records: another prefix, and the prefix in other case.
    ASSERT_TRUE(store->setData("kept", "settings_theme"));
    ASSERT_TRUE(store->setData("kept too", "Response_1"));
    auto unrelatedKeysKept = [&] {
        EXPECT_EQ(store->dataForKey("settings_theme"), "kept");
        EXPECT_EQ(store->dataForKey("Response_1"), "kept too");
    };

    for (const char* id : {"1", "2", "3"}) write(record(id, 1.0));
    EXPECT_EQ(sandbox.run({"delete", "2"}).exitCode, 0);
    EXPECT_EQ(sandbox.run({"delete", "no-such-id"}).exitCode, 0);
    EXPECT_EQ(listedIds(), (std::vector<std::string>{"1", "3"}));

    EXPECT_EQ(sandbox.run({"delete-all"}).exitCode, 0);
    EXPECT_EQ(list(), json::array());
    unrelatedKeysKept();

    write(record("4"));
    const auto logout = sandbox.run({"logout"});
    EXPECT_EQ(logout.exitCode, 0);
    EXPECT_EQ(logout.standardOutput, "");
    EXPECT_EQ(list(), json::array());
    unrelatedKeysKept();
    // Logging out is local: the server hears nothing.
    EXPECT_TRUE(server.requests().empty());
}

} // namespace
