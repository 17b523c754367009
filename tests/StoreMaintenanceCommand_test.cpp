// A damaged store is refused by every reading command, found by `store check` and mended by
// `store repair`, each run as its own process. What the repair saves is measured against what
// SQLite itself still reads by key from the damaged file.
#include <support/ToolSandbox.hpp>

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/FeXOStoreMaintenance.hpp>
#include <FeXOPlatform/UserDefaults.hpp>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <csignal>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <regex>

namespace {

using fexo::test::ToolSandbox;

struct DatabaseCloser {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
};
using Database = std::unique_ptr<sqlite3, DatabaseCloser>;

Database openBare(const std::filesystem::path& file)
{
    sqlite3* raw = nullptr;
    sqlite3_open_v2(file.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
    return Database(raw);
}

// A row as SQLite holds it, the value's storage class included.
struct StoredRow {
    std::int64_t kind = 0;
    int type = 0;
    std::string value;
    bool operator==(const StoredRow&) const = default;
};
using StoredRows = std::map<std::string, StoredRow>;

std::string columnBytes(sqlite3_stmt* statement, int column)
{
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
    return bytes == nullptr ? std::string() : std::string(bytes, sqlite3_column_bytes(statement, column));
}

StoredRow rowAt(sqlite3_stmt* statement, int kindColumn)
{
    return {sqlite3_column_int64(statement, kindColumn), sqlite3_column_type(statement, kindColumn + 1),
            columnBytes(statement, kindColumn + 1)};
}

// Each of `keys` that a bare connection reads by primary key, as it reads it.
StoredRows readableByKey(const std::filesystem::path& file, const std::vector<std::string>& keys)
{
    StoredRows rows;
    auto database = openBare(file);
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(database.get(), "SELECT kind, value FROM defaults WHERE key = ?1", -1, &select, nullptr);
    for (const auto& key : keys) {
        sqlite3_reset(select);
        sqlite3_bind_text64(select, 1, key.data(), key.size(), SQLITE_STATIC, SQLITE_UTF8);
        if (sqlite3_step(select) == SQLITE_ROW) rows[key] = rowAt(select, 0);
    }
    sqlite3_finalize(select);
    return rows;
}

// Every row of a sound store, read through its log.
StoredRows everyRow(const std::filesystem::path& file)
{
    StoredRows rows;
    auto database = openBare(file);
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(database.get(), "SELECT key, kind, value FROM defaults", -1, &select, nullptr);
    int step = SQLITE_ERROR;
    while ((step = sqlite3_step(select)) == SQLITE_ROW) rows[columnBytes(select, 0)] = rowAt(select, 1);
    sqlite3_finalize(select);
    EXPECT_EQ(step, SQLITE_DONE) << file;
    return rows;
}

void checkpoint(const std::filesystem::path& file)
{
    auto database = openBare(file);
    ASSERT_EQ(sqlite3_exec(database.get(), "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr), SQLITE_OK);
}

// The pages of the table's b-tree, each kind in key order: `leaves` left to right, `interior`
// from the root down, level by level.
struct TablePages {
    std::vector<int> leaves;
    std::vector<int> interior;
    std::vector<int> overflow;
    int total = 0;
};

TablePages tablePages(const std::filesystem::path& file)
{
    TablePages pages;
    auto database = openBare(file);
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(database.get(),
                       "SELECT pageno, pagetype FROM dbstat WHERE name = 'defaults' ORDER BY length(path), path", -1,
                       &select, nullptr);
    while (sqlite3_step(select) == SQLITE_ROW) {
        const std::string type = columnBytes(select, 1);
        (type == "leaf"       ? pages.leaves
         : type == "internal" ? pages.interior
                              : pages.overflow)
            .push_back(sqlite3_column_int(select, 0));
    }
    sqlite3_finalize(select);
    sqlite3_prepare_v2(database.get(), "PRAGMA page_count", -1, &select, nullptr);
    sqlite3_step(select);
    pages.total = sqlite3_column_int(select, 0);
    sqlite3_finalize(select);
    return pages;
}

// Overwrites each page with zeros, as a failing disk or a torn copy leaves it.
void zeroPages(const std::filesystem::path& file, const std::vector<int>& pages)
{
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    const std::string zeros(4096, '\0');
    for (const int page : pages) stream.seekp(std::streamoff(page - 1) * 4096).write(zeros.data(), zeros.size());
    ASSERT_TRUE(stream.good());
}

std::string contents(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// The host app's own keys, written beside the notifications: any bytes may form a key.
constexpr std::size_t textLength = 90;

const std::vector<std::string> hostKeys{"host.setting", std::string("host\0\xff\x80 bytes", 14), ""};

// An id shaped as the extension's (a random UUID), drawn from `random`, so that every run of a
// trial lays out the same pages.
std::string uuidFrom(std::mt19937_64& random)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string id;
    for (const int group : {8, 4, 4, 4, 12}) {
        if (!id.empty()) id += '-';
        for (int i = 0; i < group; ++i) id += digits[random() % 16];
    }
    return id;
}

// 300 notifications as the extension writes them, with short texts, so that the store has fifty
// pages; then the host's keys. Returns every key written.
std::vector<std::string> writeTrialStore(const ToolSandbox& sandbox)
{
    std::vector<std::string> keys;
    {
        std::mt19937_64 random(2);
        fexo::FeXOService service;
        for (int i = 0; i < 300; ++i) {
            const auto id = uuidFrom(random);
            service.write(fexo::Response(fexo::Date(7.5e8 + i),
                                         fexo::NotificationData(std::string(textLength, char('a' + i % 26)), "Sender"),
                                         std::nullopt, std::nullopt, id, i % 3 == 0));
            keys.push_back("response_" + id);
        }
    }
    auto store = fexo::UserDefaults::open(sandbox.values().appGroup);
    for (const auto& key : hostKeys) EXPECT_TRUE(store->setData("kept for " + key, key));
    keys.insert(keys.end(), hostKeys.begin(), hostKeys.end());
    return keys;
}

std::filesystem::path storeFile(const ToolSandbox& sandbox)
{
    return fexo::UserDefaults::open(sandbox.values().appGroup)->databasePath();
}

// "Saved N keys, lost ..." and the place of the damaged files, from the repair's output.
struct RepairReport {
    int saved = -1;
    std::string lost;
    std::filesystem::path damaged;
};

RepairReport reportOf(const std::string& output)
{
    RepairReport report;
    std::smatch match;
    if (std::regex_search(output, match, std::regex(R"(^Saved (\d+) keys?, lost ([^\n]*)\n)"))) {
        report.saved = std::stoi(match[1]);
        report.lost = match[2];
    }
    if (std::regex_search(output, match, std::regex(R"(kept as (\S+)\n)"))) report.damaged = match[1].str();
    return report;
}

TEST(StoreMaintenanceCommand, ADamagedStoreIsRefusedByReadsAndFoundByCheck)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    writeTrialStore(sandbox);
    const auto file = storeFile(sandbox);
    EXPECT_EQ(sandbox.run({"store", "check"}).standardOutput, file.string() + ": ok\n");
    checkpoint(file);
    zeroPages(file, {tablePages(file).leaves.at(4)});

    for (const std::vector<std::string>& command : {std::vector<std::string>{"list"}, {"delete-all"}}) {
        const auto refused = sandbox.run(command);
        EXPECT_EQ(refused.signal, SIGABRT) << command[0];
        EXPECT_EQ(refused.standardOutput, "") << command[0];
        EXPECT_NE(
            refused.standardError.find("\"" + file.string() + "\" could not be read: database disk image is malformed"),
            std::string::npos)
            << refused.standardError;
    }
    const auto checked = sandbox.run({"store", "check"});
    EXPECT_EQ(checked.exitCode, 1);
    EXPECT_NE(checked.standardError.find("Run `fexo store repair`"), std::string::npos) << checked.standardError;
}

// Which pages of the table a trial zeroes: three of the store's fifty.
struct Damage {
    const char* name;
    std::vector<int> (*pages)(const TablePages&);
};

void PrintTo(const Damage& damage, std::ostream* stream)
{
    *stream << damage.name;
}

class RepairOfZeroedPages : public testing::TestWithParam<Damage> { };

TEST_P(RepairOfZeroedPages, SavesEveryKeySQLiteReadsByKeyByteForByte)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    const auto keys = writeTrialStore(sandbox);
    const auto file = storeFile(sandbox);
    const auto written = everyRow(file);
    ASSERT_EQ(written.size(), keys.size());
    checkpoint(file);
    const auto pages = tablePages(file);
    ASSERT_EQ(pages.total, 50);
    ASSERT_GE(pages.interior.size(), 2u) << "the trial needs a tree of three levels";
    zeroPages(file, GetParam().pages(pages));
    const auto readable = readableByKey(file, keys);
    const auto damagedBytes = contents(file);

    const auto repaired = sandbox.run({"store", "repair"});
    EXPECT_EQ(repaired.exitCode, 1) << repaired.standardError;
    const auto report = reportOf(repaired.standardOutput);
    EXPECT_EQ(report.lost, "an unknown number.") << repaired.standardOutput;

    const auto saved = everyRow(file);
    EXPECT_EQ(report.saved, static_cast<int>(saved.size())) << repaired.standardOutput;
    for (const auto& [key, row] : readable) {
        const auto found = saved.find(key);
        EXPECT_TRUE(found != saved.end() && found->second == row) << "not saved as read: " << key;
    }
    for (const auto& [key, row] : saved) EXPECT_EQ(written.at(key), row) << key;
    EXPECT_GE(saved.size(), readable.size());
    EXPECT_EQ(contents(report.damaged), damagedBytes) << "the damaged file is kept as it was";

    EXPECT_EQ(sandbox.run({"store", "check"}).exitCode, 0);
    const auto listed = sandbox.run({"list", "--json"});
    ASSERT_EQ(listed.exitCode, 0) << listed.standardError;
    std::size_t notifications = 0;
    for (const auto& [key, row] : saved) notifications += key.starts_with("response_");
    EXPECT_EQ(nlohmann::json::parse(listed.standardOutput).size(), notifications);
}

INSTANTIATE_TEST_SUITE_P(
    StoreMaintenanceCommand, RepairOfZeroedPages,
    testing::Values(Damage{"ThreeLeavesApart",
                           [](const TablePages& pages) {
                               return std::vector<int>{pages.leaves.at(3), pages.leaves.at(10), pages.leaves.at(17)};
                           }},
                    Damage{"TheFirstLeafAndTheLast",
                           [](const TablePages& pages) {
                               return std::vector<int>{pages.leaves.front(), pages.leaves.at(9), pages.leaves.back()};
                           }},
                    Damage{"ThreeAdjacentLeaves",
                           [](const TablePages& pages) {
                               return std::vector<int>{pages.leaves.at(6), pages.leaves.at(7), pages.leaves.at(8)};
                           }},
                    Damage{"AnInteriorPageAndTwoLeaves",
                           [](const TablePages& pages) {
                               return std::vector<int>{pages.interior.at(1), pages.leaves.at(1), pages.leaves.at(2)};
                           }},
                    Damage{"TheRoot",
                           [](const TablePages& pages) { return std::vector<int>{pages.interior.front()}; }}),
    [](const testing::TestParamInfo<Damage>& info) { return std::string(info.param.name); });

// A value long enough to need a chain of overflow pages, under the host's own key.
void writeLongValue(const ToolSandbox& sandbox)
{
    EXPECT_TRUE(fexo::UserDefaults::open(sandbox.values().appGroup)->setData(std::string(12000, 'v'), "host.long"));
}

// The first page of the one overflow chain in the table: cut there, the chain ends too soon.
int firstOverflowPage(const std::filesystem::path& file)
{
    auto database = openBare(file);
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(database.get(),
                       "SELECT pageno FROM dbstat WHERE name = 'defaults' AND pagetype = 'overflow' "
                       "AND path LIKE '%+000000'",
                       -1, &select, nullptr);
    const int page = sqlite3_step(select) == SQLITE_ROW ? sqlite3_column_int(select, 0) : 0;
    sqlite3_finalize(select);
    return page;
}

TEST(StoreMaintenanceCommand, RepairCountsTheKeysItLosesWhereItCanAndExitsZeroOnlyWhenItLostNone)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    const auto keys = writeTrialStore(sandbox);
    writeLongValue(sandbox);
    const auto file = storeFile(sandbox);
    const auto written = everyRow(file);

    const auto sound = sandbox.run({"store", "repair"});
    EXPECT_EQ(sound.exitCode, 0) << sound.standardError;
    EXPECT_EQ(reportOf(sound.standardOutput).saved, static_cast<int>(written.size())) << sound.standardOutput;
    EXPECT_EQ(reportOf(sound.standardOutput).lost, "0.");
    EXPECT_EQ(everyRow(file), written);

    // The value cannot be read, but its key is listed: the loss is counted.
    checkpoint(file);
    zeroPages(file, {firstOverflowPage(file)});
    const auto cut = sandbox.run({"store", "repair"});
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_EQ(reportOf(cut.standardOutput).lost, "1.") << cut.standardOutput;
    auto kept = written;
    kept.erase("host.long");
    EXPECT_EQ(everyRow(file), kept);
    EXPECT_EQ(reportOf(cut.standardOutput).saved, static_cast<int>(kept.size()));

    // A lost leaf on top: what it held cannot be counted.
    writeLongValue(sandbox);
    checkpoint(file);
    zeroPages(file, {firstOverflowPage(file), tablePages(file).leaves.back()});
    const auto both = sandbox.run({"store", "repair"});
    EXPECT_EQ(both.exitCode, 1);
    EXPECT_EQ(reportOf(both.standardOutput).lost, "1 and an unknown number more.") << both.standardOutput;
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
    EXPECT_FALSE(repaired.mayHaveLostKeys());
}

} // namespace
