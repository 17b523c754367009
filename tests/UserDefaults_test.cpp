#include <FeXOPlatform/UserDefaults.hpp>

#include <support/ForkedProcess.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace {

using fexo::PropertyListValue;
using fexo::UserDefaults;
using fexo::test::ForkedProcess;
using fexo::test::StartGate;
using namespace std::chrono_literals;

class UserDefaultsTest : public ::testing::Test {
protected:
    void SetUp() override { ::setenv("FEXO_APP_GROUPS_DIR", directory.path().c_str(), 1); }
    void TearDown() override { ::unsetenv("FEXO_APP_GROUPS_DIR"); }

    fexo::test::TemporaryDirectory directory;
    const std::string suite = "group.test.store";
};

mode_t modeOf(const std::filesystem::path& path)
{
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// A record whose every byte depends on (writer, index, version), so a torn or mixed-up value
// cannot pass for another.
std::string recordBytes(int writer, int index, int version)
{
    std::string bytes = std::to_string(writer) + ":" + std::to_string(index) + ":" + std::to_string(version) + ":";
    const std::size_t size = 200 + static_cast<std::size_t>((writer * 977 + index * 131 + version * 17) % 3000);
    while (bytes.size() < size) bytes.push_back(static_cast<char>('a' + (bytes.size() * 7 + static_cast<std::size_t>(index + version)) % 26));
    return bytes;
}

TEST_F(UserDefaultsTest, EveryKindRoundTripsExactlyThroughTheFile)
{
    const PropertyListValue::Dictionary values = {
        {"string", PropertyListValue("héllo wörld")},
        {"empty string", PropertyListValue("")},
        {"integer", PropertyListValue(std::int64_t{-9223372036854775807 - 1})},
        {"real", PropertyListValue(0.1 + 0.2)},
        {"boolean", PropertyListValue(false)},
        {"date", PropertyListValue(fexo::Date(-1234.000000123))},
        {"data", PropertyListValue(PropertyListValue::Data{std::string("\0\xff\x01 bytes", 9)})},
        {"empty data", PropertyListValue(PropertyListValue::Data{})},
        {"array", PropertyListValue(PropertyListValue::Array{1, "two", PropertyListValue::Array{}})},
        {"dictionary", PropertyListValue(PropertyListValue::Dictionary{{"k", 3.5}, {"nested", PropertyListValue::Dictionary{}}})},
        {std::string("key with \0 and ' quote", 22), PropertyListValue(true)},
    };
    {
        auto defaults = UserDefaults::open(suite);
        ASSERT_TRUE(defaults);
        for (const auto& [key, value] : values) ASSERT_TRUE(defaults->setObject(value, key)) << key;
        EXPECT_TRUE(defaults->setObject(std::nan(""), "nan"));
    }
    auto reopened = UserDefaults::open(suite);
    ASSERT_TRUE(reopened);
    for (const auto& [key, value] : values) EXPECT_EQ(reopened->object(key), value) << key;
    EXPECT_TRUE(std::isnan(*reopened->object("nan")->real()));

    EXPECT_EQ(reopened->dataForKey("data"), std::string("\0\xff\x01 bytes", 9));
    EXPECT_EQ(reopened->dataForKey("empty data"), std::string());
    EXPECT_EQ(reopened->dataForKey("string"), std::nullopt) << "a string is not data";
    EXPECT_EQ(reopened->object("absent"), std::nullopt);

    ASSERT_TRUE(reopened->setData("new", "string"));
    EXPECT_EQ(reopened->object("string"), PropertyListValue(PropertyListValue::Data{"new"}));
    EXPECT_TRUE(reopened->removeObjectForKey("string"));
    EXPECT_TRUE(reopened->removeObjectForKey("string")) << "removing an absent key is harmless";
    EXPECT_EQ(reopened->object("string"), std::nullopt);
    EXPECT_EQ(reopened->dictionaryRepresentation().size(), values.size());
}

TEST_F(UserDefaultsTest, UnusableSuitesCannotBeOpened)
{
    for (const std::string& name : {std::string(), std::string("."), std::string(".."), std::string("a/b"),
                                    std::string("/abs"), std::string("nul\0x", 5)}) {
        EXPECT_EQ(UserDefaults::open(name), nullptr) << name;
    }
    // A container that is a file, and a database file that is not a database.
    std::ofstream(directory.path() / "file-suite") << "x";
    EXPECT_EQ(UserDefaults::open("file-suite"), nullptr);
    std::filesystem::create_directory(directory.path() / "garbage");
    std::ofstream(directory.path() / "garbage" / "defaults.sqlite") << std::string(4096, 'g');
    EXPECT_EQ(UserDefaults::open("garbage"), nullptr);
    EXPECT_NE(UserDefaults::open("..."), nullptr) << "dots beyond the two special names are a name";
}

TEST_F(UserDefaultsTest, RootComesFromTheEnvironmentAtEachOpenWithPrivateModes)
{
    const mode_t previous = ::umask(0);
    ::unsetenv("FEXO_APP_GROUPS_DIR");
    ::setenv("XDG_DATA_HOME", (directory.path() / "xdg").c_str(), 1);
    auto xdg = UserDefaults::open(suite);
    ::unsetenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    const std::string savedHome = home ? home : "";
    ::setenv("HOME", (directory.path() / "home").c_str(), 1);
    auto fromHome = UserDefaults::open(suite);
    ::setenv("HOME", savedHome.c_str(), 1);
    ::umask(previous);

    ASSERT_TRUE(xdg && fromHome);
    const auto xdgContainer = directory.path() / "xdg" / "fexo" / "app-groups" / suite;
    EXPECT_EQ(xdg->databasePath(), xdgContainer / "defaults.sqlite");
    EXPECT_EQ(fromHome->databasePath(), directory.path() / "home" / ".local" / "share" / "fexo" / "app-groups" / suite / "defaults.sqlite");
    ASSERT_TRUE(xdg->setData("x", "k"));
    EXPECT_EQ(modeOf(xdgContainer), 0700u);
    EXPECT_EQ(modeOf(directory.path() / "xdg" / "fexo"), 0700u);
    for (const char* name : {"defaults.sqlite", "defaults.sqlite-wal", "defaults.sqlite-shm"}) {
        EXPECT_EQ(modeOf(xdgContainer / name), 0600u) << name;
    }
}

TEST_F(UserDefaultsTest, PrefixQueryIsAByteWiseRangeNotAPattern)
{
    auto defaults = UserDefaults::open(suite);
    ASSERT_TRUE(defaults);
    for (const char* key : {"response_", "response_1", "response_2", "Response_3", "responseX4", "response", "respons", "z"}) {
        ASSERT_TRUE(defaults->setData(key, key));
    }
    ASSERT_TRUE(defaults->setObject(7, "response_int"));
    ASSERT_TRUE(defaults->setData("edge", "\xff\xff\xff"));
    ASSERT_TRUE(defaults->setData("edge", "\xfe\xff"));

    using ::testing::ElementsAre;
    EXPECT_THAT(defaults->keysWithPrefix("response_"), ElementsAre("response_", "response_1", "response_2", "response_int"));
    EXPECT_THAT(defaults->dataWithKeyPrefix("response_"),
                ElementsAre(std::pair<std::string, std::string>("response_", "response_"),
                            std::pair<std::string, std::string>("response_1", "response_1"),
                            std::pair<std::string, std::string>("response_2", "response_2")));
    EXPECT_THAT(defaults->keysWithPrefix("\xff\xff"), ElementsAre("\xff\xff\xff"));
    EXPECT_THAT(defaults->keysWithPrefix("\xfe"), ElementsAre("\xfe\xff"));
    EXPECT_EQ(defaults->keysWithPrefix("").size(), 11u);
    EXPECT_TRUE(defaults->keysWithPrefix("nothing").empty());
}

TEST_F(UserDefaultsTest, RegistrationDomainLiesBeneathAndStaysInMemory)
{
    auto defaults = UserDefaults::open(suite);
    ASSERT_TRUE(defaults);
    defaults->registerDefaults({{"a", 1}, {"b", "registered"}, {"d", PropertyListValue::Data{"r"}}});
    ASSERT_TRUE(defaults->setObject("own", "b"));
    EXPECT_EQ(defaults->dictionaryRepresentation(),
              (PropertyListValue::Dictionary{{"a", 1}, {"b", "own"}, {"d", PropertyListValue::Data{"r"}}}));
    EXPECT_EQ(defaults->dataForKey("d"), "r");
    ASSERT_TRUE(defaults->removeObjectForKey("b"));
    EXPECT_EQ(defaults->object("b"), PropertyListValue("registered"));
    EXPECT_TRUE(defaults->keysWithPrefix("").empty());

    auto other = UserDefaults::open(suite);
    EXPECT_TRUE(other->dictionaryRepresentation().empty());
}

// Connections leave the log behind when they close, so every later opener must rebuild what it
// holds, and a new suite must leave nothing of its preparation in the folder.
TEST_F(UserDefaultsTest, ChangesLeftInTheLogReachTheNextOpenerAndTheLogStaysBounded)
{
    const std::string large(64 * 1024, 'x');
    {
        auto defaults = UserDefaults::open(suite);
        ASSERT_TRUE(defaults);
        // One change larger than the log's limit, then small ones.
        ASSERT_TRUE(defaults->performExclusively([&] {
            for (int i = 0; i < 100; ++i) defaults->setData(large + std::to_string(i), "large." + std::to_string(i));
        }));
        ASSERT_TRUE(defaults->setObject("first", "small"));
        ASSERT_TRUE(defaults->setObject("last", "small"));
    }
    const auto container = directory.path() / suite;
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(container)) names.push_back(entry.path().filename());
    EXPECT_THAT(names, ::testing::UnorderedElementsAre("defaults.sqlite", "defaults.sqlite-wal", "defaults.sqlite-shm"));
    EXPECT_GT(std::filesystem::file_size(container / "defaults.sqlite-wal"), 0u);

    // Another process opens it from scratch: the shared index is rebuilt from the log alone.
    ForkedProcess reader([&](int) {
        auto defaults = UserDefaults::open(suite);
        if (!defaults || defaults->object("small") != PropertyListValue("last")) return 1;
        for (int i = 0; i < 100; ++i) {
            if (defaults->dataForKey("large." + std::to_string(i)) != large + std::to_string(i)) return 2;
        }
        return defaults->setObject("again", "small") ? 0 : 3;
    });
    EXPECT_EQ(reader.wait(10s), 0);
    EXPECT_EQ(UserDefaults::open(suite)->object("small"), PropertyListValue("again"));
    // The 6.5 MiB change went through the log, which was then copied back and cut to 4 MiB.
    EXPECT_LE(std::filesystem::file_size(container / "defaults.sqlite-wal"), 4u * 1024 * 1024);
}

TEST_F(UserDefaultsTest, ExclusiveTransactionCommitsWholeOrNothing)
{
    auto defaults = UserDefaults::open(suite);
    ASSERT_TRUE(defaults);
    ASSERT_TRUE(defaults->setObject(1, "n"));
    EXPECT_THROW(defaults->performExclusively([&] {
        defaults->setObject(2, "n");
        defaults->setObject("x", "other");
        throw std::runtime_error("stop");
    }),
                 std::runtime_error);
    EXPECT_EQ(defaults->object("n"), PropertyListValue(1));
    EXPECT_EQ(defaults->object("other"), std::nullopt);

    EXPECT_TRUE(defaults->performExclusively([&] {
        const auto n = *defaults->object("n")->integer();
        EXPECT_TRUE(defaults->performExclusively([&] { defaults->setObject(n + 1, "n"); }));
        defaults->removeObjectForKey("missing");
    }));
    EXPECT_EQ(UserDefaults::open(suite)->object("n"), PropertyListValue(2));
}

TEST_F(UserDefaultsTest, ThreadsShareOneObject)
{
    auto defaults = UserDefaults::open(suite);
    ASSERT_TRUE(defaults);
    constexpr int threads = 4;
    constexpr int writes = 50;
    std::vector<std::thread> workers;
    std::atomic<int> failures{0};
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < writes; ++i) {
                if (!defaults->setData(recordBytes(t, i, 0), "t" + std::to_string(t) + "_" + std::to_string(i))) ++failures;
                const bool ok = defaults->performExclusively([&] {
                    const auto count = defaults->object("count");
                    defaults->setObject(count ? *count->integer() + 1 : 1, "count");
                });
                if (!ok) ++failures;
                (void)defaults->dataWithKeyPrefix("t");
            }
        });
    }
    for (auto& worker : workers) worker.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(defaults->object("count"), PropertyListValue(threads * writes));
    EXPECT_EQ(defaults->keysWithPrefix("t").size(), static_cast<std::size_t>(threads * writes));
}

// Each child writes its records, rewrites every third, deletes every fifth and counts every
// write in one shared counter through a read-then-write; all children run at once.
TEST_F(UserDefaultsTest, ConcurrentProcessesLoseNothing)
{
    constexpr int writers = 4;
    constexpr int records = 150;
    StartGate gate;
    std::vector<std::unique_ptr<ForkedProcess>> children;
    for (int w = 0; w < writers; ++w) {
        children.push_back(std::make_unique<ForkedProcess>([&, w](int) {
            gate.pass();
            auto defaults = UserDefaults::open(suite);
            if (!defaults) return 3;
            for (int i = 0; i < records; ++i) {
                const std::string key = "r_" + std::to_string(w) + "_" + std::to_string(i);
                if (!defaults->setData(recordBytes(w, i, 1), key)) return 4;
                if (i % 3 == 0 && !defaults->setData(recordBytes(w, i, 2), key)) return 4;
                if (i % 5 == 0 && !defaults->removeObjectForKey(key)) return 5;
                const bool counted = defaults->performExclusively([&] {
                    const auto count = defaults->object("count");
                    defaults->setObject(count ? *count->integer() + 1 : 1, "count");
                });
                if (!counted) return 6;
            }
            return 0;
        }));
    }
    gate.open();
    for (auto& child : children) EXPECT_EQ(child->wait(60s), 0);

    auto defaults = UserDefaults::open(suite);
    ASSERT_TRUE(defaults);
    EXPECT_EQ(defaults->object("count"), PropertyListValue(writers * records));
    std::map<std::string, std::string> expected;
    for (int w = 0; w < writers; ++w) {
        for (int i = 0; i < records; ++i) {
            if (i % 5 != 0) expected["r_" + std::to_string(w) + "_" + std::to_string(i)] = recordBytes(w, i, i % 3 == 0 ? 2 : 1);
        }
    }
    const auto stored = defaults->dataWithKeyPrefix("r_");
    EXPECT_EQ(stored.size(), expected.size());
    for (const auto& [key, bytes] : stored) {
        const auto wanted = expected.find(key);
        if (wanted == expected.end()) {
            ADD_FAILURE() << "deleted record present: " << key;
        } else {
            EXPECT_TRUE(bytes == wanted->second) << "torn or stale record: " << key;
        }
    }
}

TEST_F(UserDefaultsTest, WriterKilledMidWritesLeavesEveryReturnedWrite)
{
    constexpr int keys = 40;
    std::map<std::string, int> lastReported;
    for (int round = 0; round < 3; ++round) {
        ForkedProcess child([&](int reports) {
            auto defaults = UserDefaults::open(suite);
            if (!defaults) return 3;
            for (int version = round * 1000000;; ++version) {
                const std::string key = "k" + std::to_string(version % keys);
                if (!defaults->setData(recordBytes(0, version % keys, version), key)) return 4;
                ForkedProcess::report(reports, key + " " + std::to_string(version));
            }
        });
        std::string reports;
        for (int seen = 0; seen < 150 + round * 50; ++seen) {
            const auto line = child.nextLine(30s);
            ASSERT_TRUE(line) << "the writer stalled";
            reports += *line + "\n";
        }
        child.kill();
        EXPECT_EQ(child.wait(30s), -SIGKILL);
        std::istringstream lines(reports + child.takeReports());
        std::string key;
        int version = 0;
        while (lines >> key >> version) lastReported[key] = version;
    }
    ASSERT_EQ(lastReported.size(), static_cast<std::size_t>(keys));

    sqlite3* raw = nullptr;
    ASSERT_EQ(sqlite3_open_v2((directory.path() / suite / "defaults.sqlite").c_str(), &raw, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database(raw, &sqlite3_close);
    std::string verdict;
    sqlite3_exec(raw, "PRAGMA integrity_check", [](void* out, int, char** values, char**) {
        *static_cast<std::string*>(out) += values[0] ? values[0] : "";
        return 0;
    }, &verdict, nullptr);
    EXPECT_EQ(verdict, "ok");

    auto defaults = UserDefaults::open(suite);
    ASSERT_TRUE(defaults);
    for (const auto& [key, reported] : lastReported) {
        const auto bytes = defaults->dataForKey(key);
        ASSERT_TRUE(bytes) << key;
        // A write may have committed after its report could be sent; it must then be a later one.
        const int stored = std::stoi(bytes->substr(bytes->find(':', 2) + 1));
        EXPECT_GE(stored, reported) << key;
        EXPECT_EQ(*bytes, recordBytes(0, std::stoi(key.substr(1)), stored)) << key;
    }
}

} // namespace
