// A damaged store is refused by every reading command, found by `store check` and mended by
// `store repair`, each run as its own process.
#include <support/ToolSandbox.hpp>

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/FeXOStoreMaintenance.hpp>
#include <FeXOPlatform/UserDefaults.hpp>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <csignal>
#include <fstream>
#include <regex>

namespace {

using fexo::test::ToolSandbox;

TEST(StoreMaintenanceCommand, ADamagedStoreIsRefusedCheckedAndRepaired)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    std::filesystem::path file;
    {
        auto store = fexo::UserDefaults::open(sandbox.values().appGroup);
        file = store->databasePath();
        ASSERT_TRUE(store->setData("kept", "host.setting"));
        ASSERT_TRUE(store->performExclusively([&] {
            for (int i = 0; i < 600; ++i) {
                store->setData(R"({"id":")" + std::to_string(i) + R"(","data":{"text":")" + std::string(500, 't') +
                                   "\"}}",
                               "response_" + std::to_string(i));
            }
        }));
    }
    EXPECT_EQ(sandbox.run({"store", "check"}).standardOutput, file.string() + ": ok\n");
    sqlite3* raw = nullptr;
    sqlite3_open(file.c_str(), &raw);
    sqlite3_exec(raw, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
    sqlite3_close(raw);
    std::fstream(file, std::ios::in | std::ios::out | std::ios::binary)
        .seekp(30 * 4096)
        .write(std::string(20 * 4096, '\0').data(), 20 * 4096);

    for (const std::vector<std::string>& command : {std::vector<std::string>{"list"}, {"delete-all"}}) {
        const auto refused = sandbox.run(command);
        EXPECT_EQ(refused.signal, SIGABRT) << command[0];
        EXPECT_EQ(refused.standardOutput, "") << command[0];
        EXPECT_NE(
            refused.standardError.find("\"" + file.string() + "\" could not be read: database disk image is malformed"),
            std::string::npos)
            << refused.standardError;
    }
    EXPECT_EQ(sandbox.run({"store", "check"}).exitCode, 1);

    const auto repaired = sandbox.run({"store", "repair"});
    ASSERT_EQ(repaired.exitCode, 0) << repaired.standardError;
    std::smatch counts;
    ASSERT_TRUE(std::regex_search(repaired.standardOutput, counts, std::regex(R"(^Saved (\d+) keys, lost (\d+))")))
        << repaired.standardOutput;
    const int saved = std::stoi(counts[1]);
    EXPECT_TRUE(saved > 200 && saved < 601) << repaired.standardOutput;

    EXPECT_EQ(sandbox.run({"store", "check"}).exitCode, 0);
    const auto listed = sandbox.run({"list", "--json"});
    ASSERT_EQ(listed.exitCode, 0) << listed.standardError;
    EXPECT_EQ(static_cast<int>(nlohmann::json::parse(listed.standardOutput).size()), saved - 1);
    EXPECT_EQ(fexo::UserDefaults::open(sandbox.values().appGroup)->dataForKey("host.setting"), "kept");
    const auto aside = std::regex_replace(repaired.standardOutput, std::regex(R"([\s\S]*kept as (\S+)\n)"), "$1");
    EXPECT_TRUE(std::filesystem::is_regular_file(aside)) << aside;
}

TEST(StoreMaintenanceCommand, RepairIsRefusedWhileThisProcessHoldsTheStore)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    {
        fexo::FeXOService service;
        service.write(
            fexo::Response(std::nullopt, fexo::NotificationData("kept", "Ann"), std::nullopt, std::nullopt, "1"));
        const auto refused = fexo::FeXOStoreMaintenance::repair();
        EXPECT_FALSE(refused.succeeded());
        EXPECT_NE(refused.failure.find("this process still has the store open"), std::string::npos) << refused.failure;
        EXPECT_TRUE(refused.damagedPath.empty());
        EXPECT_TRUE(service.fetchNotification("1").has_value()); // nothing was moved beneath it
    }
    const auto repaired = fexo::FeXOStoreMaintenance::repair(); // every connection is gone
    EXPECT_TRUE(repaired.succeeded()) << repaired.failure;
    EXPECT_EQ(repaired.saved, 1u);
}

} // namespace
