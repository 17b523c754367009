#include <FeXOPlatform/UserDefaults.hpp>

#include <support/ForkedProcess.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <cmath>
#include <fstream>
#include <map>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>

namespace {

using fexo::PropertyListValue;
using fexo::UserDefaults;
using fexo::test::ForkedProcess;
using ::testing::ElementsAre;
using namespace std::chrono_literals;

class UserDefaultsTest : public ::testing::Test {
protected:
    void SetUp() override { ::setenv("FEXO_APP_GROUPS_DIR", directory.path().c_str(), 1); }
    void TearDown() override { ::unsetenv("FEXO_APP_GROUPS_DIR"); }

    fexo::test::TemporaryDirectory directory;
    const std::string suite = "group.test.store";
};

// A record whose every byte depends on (writer, index, version), so a torn or mixed-up value
// cannot pass for another.
std::string recordBytes(int writer, int index, int version)
{
    std::string bytes = std::to_string(writer) + ":" + std::to_string(index) + ":" + std::to_string(version) + ":";
    bytes.resize(200 + static_cast<std::size_t>((writer * 977 + index * 131 + version * 17) % 3000),
                 static_cast<char>('a' + index % 26));
    return bytes;
}

TEST_F(UserDefaultsTest, EveryKindRoundTripsExactlyUnderItsFixedStoredNumber)
{
    // Keys in the order of their kind's number, which every existing store holds on disk.
    const std::vector<std::pair<std::string, PropertyListValue>> values = {
        {"0 string", PropertyListValue("héllo wörld")},
        {"1 integer", PropertyListValue(std::int64_t{-9223372036854775807 - 1})},
        {"2 real", PropertyListValue(0.1 + 0.2)},
        {"3 boolean", PropertyListValue(false)},
        {"4 date", PropertyListValue(fexo::Date(-1234.000000123))},
        {"5 data", PropertyListValue(PropertyListValue::Data{std::string("\0\xff\x01 bytes", 9)})},
        {"6 array", PropertyListValue(PropertyListValue::Array{1, "two", PropertyListValue::Array{}})},
        {"7 dictionary",
         PropertyListValue(PropertyListValue::Dictionary{{"k", 3.5}, {"n", PropertyListValue::Dictionary{}}})},
        {"8 empty data", PropertyListValue(PropertyListValue::Data{})},
        {std::string("9 \0 and ' in a key", 19), PropertyListValue("")},
    };
    auto defaults = UserDefaults::open(suite);
    for (const auto& [key, value] : values) ASSERT_TRUE(defaults->setObject(value, key)) << key;
    ASSERT_TRUE(defaults->setObject(std::nan(""), "nan"));
    std::string kinds;
    sqlite3* raw = nullptr;
    sqlite3_open_v2(defaults->databasePath().c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_exec(
        raw, "SELECT group_concat(kind, '') FROM (SELECT kind FROM defaults WHERE key < 'a' ORDER BY key)",
        [](void* out, int, char** row, char**) { return *static_cast<std::string*>(out) = row[0], 0; }, &kinds,
        nullptr);
    sqlite3_close(raw);
    EXPECT_EQ(kinds, "0123456750");
    defaults.reset();
    auto reopened = UserDefaults::open(suite);
    for (const auto& [key, value] : values) EXPECT_EQ(reopened->object(key), value) << key;
    EXPECT_TRUE(std::isnan(*reopened->object("nan")->real()));
    EXPECT_EQ(reopened->dataForKey("8 empty data"), std::string());
    EXPECT_EQ(reopened->dataForKey("0 string"), std::nullopt) << "a string is not data";
    EXPECT_EQ(reopened->dictionaryRepresentation().size(), values.size() + 1);
}

// Links may stand anywhere above the suite (home folders often are links), never in the suite.
TEST_F(UserDefaultsTest, SuiteNamesLinksAndTheEnvironmentDecideWhereAStoreOpens)
{
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("a/b"), std::string("a\0b", 3)}) {
        EXPECT_EQ(UserDefaults::open(name), nullptr) << name;
    }
    std::filesystem::create_directory(directory.path() / "garbage");
    std::ofstream(directory.path() / "garbage" / "defaults.sqlite") << std::string(4096, 'g');
    EXPECT_EQ(UserDefaults::open("garbage"), nullptr);
    std::filesystem::create_directory_symlink(directory.path() / "garbage", directory.path() / "linked-suite");
    EXPECT_EQ(UserDefaults::open("linked-suite"), nullptr);

    std::filesystem::create_directories(directory.path() / "real" / "root");
    std::filesystem::create_directory_symlink(directory.path() / "real", directory.path() / "ancestor");
    std::filesystem::create_directory_symlink(directory.path() / "ancestor" / "root", directory.path() / "root-link");
    ::setenv("FEXO_APP_GROUPS_DIR", (directory.path() / "root-link" / "missing").c_str(), 1);
    const mode_t previous = ::umask(0);
    auto linked = UserDefaults::open("...");
    ::umask(previous);
    ASSERT_TRUE(linked && linked->setData("x", "k"))
        << "dots beyond the two special names are a name, and the root may be a link";
    EXPECT_EQ(UserDefaults::open("...")->dataForKey("k"), "x");
    const auto container = directory.path() / "real/root/missing/...";
    ::unsetenv("FEXO_APP_GROUPS_DIR");
    ::setenv("XDG_DATA_HOME", (directory.path() / "xdg").c_str(), 1);
    EXPECT_EQ(UserDefaults::open(suite)->databasePath(),
              directory.path() / "xdg/fexo/app-groups" / suite / "defaults.sqlite");
    ::unsetenv("XDG_DATA_HOME");
    const std::string home = std::getenv("HOME");
    ::setenv("HOME", directory.path().c_str(), 1);
    EXPECT_EQ(UserDefaults::open(suite)->databasePath(),
              directory.path() / ".local/share/fexo/app-groups" / suite / "defaults.sqlite");
    ::setenv("HOME", home.c_str(), 1);
    for (const auto& name : {"..", ".", "defaults.sqlite", "defaults.sqlite-wal", "defaults.sqlite-shm"}) {
        struct stat status { };
        EXPECT_EQ(::stat((container / name).c_str(), &status) == 0 ? status.st_mode & 0777 : 0,
                  name[0] == '.' ? 0700u : 0600u)
            << name;
    }
}

TEST_F(UserDefaultsTest, PrefixScansAreByteWiseRangesAndTheRegistrationDomainLiesBeneath)
{
    auto defaults = UserDefaults::open(suite);
    for (const char* key : {"response_", "response_1", "Response_3", "response", "\xff\xff\xff", "\xfe\xff"})
        ASSERT_TRUE(defaults->setData(key, key));
    ASSERT_TRUE(defaults->setObject(7, "response_int"));
    EXPECT_THAT(defaults->keysWithPrefix("response_"), ElementsAre("response_", "response_1", "response_int"));
    EXPECT_THAT(defaults->dataWithKeyPrefix("response_"),
                ElementsAre(std::pair<std::string, std::string>("response_", "response_"),
                            std::pair<std::string, std::string>("response_1", "response_1")));
    EXPECT_THAT(defaults->keysWithPrefix("\xff\xff"), ElementsAre("\xff\xff\xff")) << "no upper bound exists";
    EXPECT_EQ(defaults->keysWithPrefix("").size(), 7u);

    defaults->registerDefaults({{"a", 1}, {"response", "registered"}, {"d", PropertyListValue::Data{"r"}}});
    EXPECT_EQ(defaults->dictionaryRepresentation().size(), 9u);
    EXPECT_EQ(defaults->dataForKey("d"), "r");
    ASSERT_TRUE(defaults->removeObjectForKey("response") && defaults->removeObjectForKey("response"));
    EXPECT_EQ(defaults->object("response"), PropertyListValue("registered"));
    EXPECT_EQ(UserDefaults::open(suite)->object("a"), std::nullopt) << "registrations stay in their object";
}

TEST_F(UserDefaultsTest, ThreadsShareOneObjectAndTransactionsCommitWholeOrNothing)
{
    auto defaults = UserDefaults::open(suite);
    ASSERT_TRUE(defaults->setObject(0, "n"));
    EXPECT_THROW(defaults->performExclusively([&] { defaults->setObject(-1, "n"), throw std::runtime_error("stop"); }),
                 std::runtime_error);
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&] {
            const auto increment = [&] { defaults->setObject(*defaults->object("n")->integer() + 1, "n"); };
            for (int i = 0; i < 50; ++i)
                EXPECT_TRUE(
                    defaults->performExclusively([&] { EXPECT_TRUE(defaults->performExclusively(increment)); }));
        });
    }
    for (auto& worker : workers) worker.join();
    EXPECT_EQ(UserDefaults::open(suite)->object("n"), PropertyListValue(200));
}

TEST_F(UserDefaultsTest, ShortLivedWritersKeepTheLogShortAndLoseNothing)
{
    // Each connection is the store's only one, as in a process that stores one push and exits:
    // the next opener rebuilds the log's index by reading the whole log, so the log must not grow.
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(UserDefaults::open(suite)->setData(recordBytes(1, i, 0), "k" + std::to_string(i)));
    const auto log = directory.path() / suite / "defaults.sqlite-wal";
    EXPECT_LE(std::filesystem::file_size(log), 200u * 4120u) << "about 400 frames written";
    auto defaults = UserDefaults::open(suite);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(defaults->dataForKey("k" + std::to_string(i)), recordBytes(1, i, 0)) << i;
}

TEST_F(UserDefaultsTest, WriterKilledMidWritesLeavesEveryReturnedWrite)
{
    constexpr int keys = 40;
    // The writer notes each write that returned here, in memory it shares with this process.
    auto* returned = static_cast<int*>(
        ::mmap(nullptr, keys * sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::fill(returned, returned + keys, -1);
    for (int round = 0; round < 3; ++round) {
        fexo::test::StartGate busy;
        ForkedProcess child([&] {
            auto defaults = UserDefaults::open(suite);
            for (int version = round * 1000000;; ++version) {
                if (!defaults ||
                    !defaults->setData(recordBytes(0, version % keys, version), "k" + std::to_string(version % keys)))
                    return 4;
                returned[version % keys] = version;
                if (version == round * 1000000 + 150) busy.open();
            }
        });
        busy.pass();
        EXPECT_EQ(child.wait(0s), std::nullopt) << "the writer is killed as it writes";
    }
    auto defaults = UserDefaults::open(suite);
    for (int key = 0; key < keys; ++key) {
        const auto bytes = defaults->dataForKey("k" + std::to_string(key));
        ASSERT_TRUE(bytes) << key;
        // A write may have committed before the note was made; it must then be a later one.
        const int stored = std::stoi(bytes->substr(bytes->find(':', 2) + 1));
        EXPECT_GE(stored, returned[key]) << key;
        EXPECT_EQ(*bytes, recordBytes(0, key, stored)) << key;
    }
    ::munmap(returned, keys * sizeof(int));
}

} // namespace
