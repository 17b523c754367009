// fexo's inbox commands as separate processes: a push stored by `handle-push` appears in a
// `watch` of another process, and `list --limit` pages with the cursor it prints.
#include <support/ForkedProcess.hpp>
#include <support/ToolSandbox.hpp>

#include <FeXONotificationService/FeXOService.hpp>

#include <gtest/gtest.h>

#include <csignal>

namespace {

using nlohmann::json;

TEST(InboxCommands, AWatchShowsAPushStoredByTheExtensionAndALogoutOfTheApp)
{
    fexo::test::ToolSandbox sandbox{FEXO_TOOL_PATH};
    sandbox.serve();
    fexo::test::ChildProcess watch(FEXO_TOOL_PATH, {"watch", "--json"});
    EXPECT_EQ(json::parse(watch.readLine()), (json{{"total", 0}, {"unread", 0}, {"newest", nullptr}}));

    const json push = sandbox.queueNotification("recipient-1", "Your parcel is on its way", "FeXO Post");
    const auto handled = sandbox.run({"handle-push", "--timeout", "1e10"}, push.dump()); // a long limit, not none
    ASSERT_EQ(handled.exitCode, 0) << handled.standardError;
    const json shown = json::parse(fexo::test::outputLines(handled.standardOutput).back());
    EXPECT_EQ(shown["title"], "FeXO Post");
    EXPECT_EQ(shown["body"], "Your parcel is on its way");
    EXPECT_EQ(shown["rewritten"], true);
    const json line = json::parse(watch.readLine());
    EXPECT_EQ(line["total"], 1);
    EXPECT_EQ(line["unread"], 1);
    EXPECT_EQ(line["newest"]["title"], "FeXO Post");
    EXPECT_EQ(line["newest"]["body"], "Your parcel is on its way");
    EXPECT_EQ(line["newest"]["id"], shown["id"]); // the line names the record it stored

    ASSERT_EQ(sandbox.run({"mark-all-read"}).exitCode, 0);
    EXPECT_EQ(json::parse(watch.readLine())["unread"], 0);
    ASSERT_EQ(sandbox.run({"logout"}).exitCode, 0);
    EXPECT_EQ(json::parse(watch.readLine()), (json{{"total", 0}, {"unread", 0}, {"newest", nullptr}}));
    EXPECT_EQ(watch.stop(SIGINT), 0);
}

TEST(InboxCommands, ListPagesWithTheCursorItPrintsAndAgreesWithTheWholeList)
{
    fexo::test::ToolSandbox sandbox{FEXO_TOOL_PATH};
    for (int i = 0; i < 5; ++i) {
        const json record{{"id", "r" + std::to_string(i)}, {"createdAt", i % 2}, {"data", {{"text", "t"}}}};
        ASSERT_EQ(sandbox.run({"write", "-"}, record.dump()).exitCode, 0);
    }
    const json all = json::parse(sandbox.run({"list", "--json"}).standardOutput);
    // A refusal is listed whole, but is no page's.
    ASSERT_EQ(sandbox.run({"write", "-"}, R"({"id":"refused","createdAt":2,"errorCode":404})").exitCode, 0);
    EXPECT_EQ(json::parse(sandbox.run({"list", "--json"}).standardOutput)[0]["id"], "refused");
    json paged = json::array();
    std::vector<std::string> arguments{"list", "--json", "--limit", "2"};
    for (;;) {
        const json page = json::parse(sandbox.run(arguments).standardOutput);
        for (const auto& record : page["records"]) paged.push_back(record);
        if (page["next"].is_null()) break;
        arguments = {"list", "--json", "--limit", "2", "--after", page["next"]};
    }
    EXPECT_EQ(paged, all);
    EXPECT_EQ(sandbox.run({"unread"}).standardOutput, "5\n");
    EXPECT_EQ(sandbox.run({"list", "--limit", "2", "--after", "nonsense"}).exitCode, 1);
}

// Another process adds records 1, 2, 3, ... each newer than the last: a line that is one snapshot
// has as many records as its newest one's number, whichever writes it folded together.
TEST(InboxCommands, EveryWatchLineIsOneSnapshotDuringABurstOfWritesFromAnotherProcess)
{
    fexo::test::ToolSandbox sandbox{FEXO_TOOL_PATH};
    // In memory, where a commit takes microseconds, as long as a read: many writes land between
    // any two reads that are not one snapshot.
    const std::filesystem::path groups = "/dev/shm/fexo-watch-" + std::to_string(::getpid());
    ::setenv("FEXO_APP_GROUPS_DIR", groups.c_str(), 1);
    struct Removal {
        std::filesystem::path path;
        ~Removal() { std::filesystem::remove_all(path); }
    } removal{groups};
    fexo::test::ChildProcess watch(FEXO_TOOL_PATH, {"watch", "--json"});
    EXPECT_EQ(json::parse(watch.readLine())["total"], 0);
    constexpr int writes = 20000;
    fexo::test::ForkedProcess writer([] {
        fexo::FeXOService service;
        for (int i = 1; i <= writes; ++i) {
            const std::string number = std::to_string(i);
            service.write(fexo::Response(fexo::Date(i), fexo::NotificationData(number, "burst"), {}, {}, number));
        }
        return 0;
    });
    int lines = 0;
    for (json line = json::parse(watch.readLine()); lines < 1000000; line = json::parse(watch.readLine()), ++lines) {
        ASSERT_TRUE(line["newest"].is_object()) << line;
        EXPECT_EQ(line["newest"]["body"], std::to_string(line["total"].get<int>())) << line;
        EXPECT_EQ(line["unread"], line["total"]) << line;
        if (line["total"] == writes) break;
    }
    EXPECT_EQ(writer.wait(std::chrono::seconds(60)), 0);
    EXPECT_GT(lines, 0);
    EXPECT_EQ(watch.stop(SIGINT), 0);
}

} // namespace
