// The app side's store commands, each run as its own process against one app-group store.
#include <support/SmallFileSystem.hpp>
#include <support/ToolSandbox.hpp>

#include <gmock/gmock.h>

namespace {

using fexo::test::outputLines;
using nlohmann::json;

class StoreCommands : public ::testing::Test {
protected:
    void write(const json& record) const { ASSERT_EQ(sandbox.run({"write"}, record.dump()).exitCode, 0) << record; }
    json list() const { return json::parse(sandbox.run({"list", "--json"}).standardOutput, nullptr, false); }

    fexo::test::ToolSandbox sandbox{FEXO_TOOL_PATH};
};

json record(const std::string& id, std::optional<double> createdAt = std::nullopt, bool isRead = false)
{
    json value{{"id", id}, {"data", {{"sender", "sender " + id}, {"text", "text " + id}}}, {"isRead", isRead}};
    if (createdAt) value["createdAt"] = *createdAt;
    return value;
}

TEST_F(StoreCommands, WriteRefusesMalformedRecordsAndWritesNothing)
{
    const std::pair<std::string, std::string> cases[] = {
        {R"({"id":5})", R"(fexo: typeMismatch(String, Context(codingPath: ["id"], )"},
        {std::string(2 << 20, ' '), "fexo: the record is more than 1,048,576 bytes\n"},
    };
    for (const auto& [input, description] : cases) {
        const auto result = sandbox.run({"write"}, input);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.standardError.rfind(description, 0), 0u) << result.standardError;
    }
    EXPECT_EQ(list(), json::array());
}

TEST_F(StoreCommands, AChangeTheStoreRefusesExitsOneAndKeepsNothing)
{
    std::string whyNot;
    const auto disk = fexo::test::SmallFileSystem::mount(2 << 20, whyNot);
    if (!disk) GTEST_SKIP() << whyNot;
    ::setenv("FEXO_APP_GROUPS_DIR", disk->path().c_str(), 1); // for the tool's processes
    write(record("1"));
    write(record("2"));
    const json big = {{"id", "3"}, {"data", {{"text", std::string(200000, 'x')}}}};
    const std::vector<std::pair<std::vector<std::string>, std::string>> changes = {
        {{"write"}, big.dump()}, {{"mark-read", "1"}, ""}, {{"mark-all-read"}, ""},
        {{"delete", "1"}, ""},   {{"delete-all"}, ""},     {{"logout"}, ""},
    };
    const auto refuse = [&](const std::string& reason) {
        for (const auto& [command, input] : changes) {
            const auto result = sandbox.run(command, input);
            EXPECT_EQ(result.exitCode, 1) << command[0] << " " << reason;
            EXPECT_THAT(result.standardError,
                        testing::HasSubstr("could not be written (" + reason + "); the change was not kept.\n"))
                << command[0];
        }
        EXPECT_EQ(list().size(), 2u) << reason; // every record still there, unread
        EXPECT_EQ(sandbox.run({"unread"}).standardOutput, "2\n");
    };

    disk->fill();
    // Only the large write needs new blocks for certain; the others may reuse the log's.
    const auto full = sandbox.run({"write"}, big.dump());
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_THAT(full.standardError, testing::HasSubstr("(database or disk is full); the change was not kept."));
    disk->freeSpace();

    disk->remount(true);
    refuse("attempt to write a readonly database");
    disk->remount(false);
    EXPECT_EQ(sandbox.run({"logout"}).exitCode, 0);
    EXPECT_EQ(list(), json::array());
}

TEST_F(StoreCommands, ListShowsNewestFirstWithControlsEscapedAndColumnsCutBetweenCharacters)
{
    std::string longText;
    for (int i = 0; i < 70; ++i) longText += "\u00e9";
    const json hostile{{"id", "x\x1b]0;owned\x07"}, {"data", {{"sender", "Eve\x1b[2J\r\u202e"}, {"text", longText}}}};
    const json failed{{"id", "f"}, {"createdAt", 1e300}, {"errorCode", 404}, {"errorMessage", "Not found"}};
    for (const auto& r : {record("a", 100.0), record("c", 300.5, true), record("d", 0.0), hostile, failed}) write(r);

    const json listed = list(); // --json: the stored forms, exact, undated last
    EXPECT_EQ(listed, json::array({failed, record("c", 300.5, true), record("a", 100.0), record("d", 0.0), hostile}));
    const auto lines = outputLines(sandbox.run({"list"}).standardOutput);
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(lines[1], "f" + std::string(36, ' ') + "?" + std::string(20, ' ') + "no   " + std::string(17, ' ') +
                            "[refusal] error 404: Not found");
    EXPECT_NE(lines[4].find("2001-01-01T00:00:00Z no   sender d"), std::string::npos) << lines[4];
    EXPECT_EQ(lines[5], "x\\x1B]0;owned\\x07" + std::string(20, ' ') + "-" + std::string(20, ' ') + "no   " +
                            "Eve\\x1B[2J\\r~    " + longText.substr(0, 59 * 2) + "~");
    EXPECT_EQ(lines.back(), "4 notifications, 3 unread, 1 refusal");
}

TEST_F(StoreCommands, ShowMarkReadAndDeleteTellAMissingRecordFromAPresentOne)
{
    EXPECT_EQ(sandbox.run({"show", "7\x1b[2J"}).standardError, "fexo: no notification with id \"7\\x1B[2J\"\n");
    EXPECT_EQ(sandbox.run({"mark-read", "7"}).exitCode, 1);
    write(record("7", 10.0));
    write(record("8"));
    EXPECT_EQ(sandbox.run({"mark-read", "7"}).exitCode, 0);
    EXPECT_EQ(json::parse(sandbox.run({"show", "7"}).standardOutput), record("7", 10.0, true));
    EXPECT_EQ(sandbox.run({"delete", "8"}).exitCode, 0);
    EXPECT_EQ(list(), json::array({record("7", 10.0, true)}));
}

} // namespace
