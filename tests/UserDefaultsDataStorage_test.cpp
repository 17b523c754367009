#include <FeXONotificationService/UserDefaultsDataStorage.hpp>

#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <support/Configuration.hpp>
#include <support/ForkedProcess.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <regex>
#include <thread>

namespace {

using fexo::NotificationData;
using fexo::Response;
using fexo::UserDefaultsDataStorage;
using namespace std::chrono_literals;

class UserDefaultsDataStorageTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ::setenv("FEXO_APP_GROUPS_DIR", (directory.path() / "groups").c_str(), 1);
        fexo::test::installConfiguration(directory.path(), configuration);
    }
    void TearDown() override { ::unsetenv("FEXO_APP_GROUPS_DIR"); }

    // Writes raw bytes the way another process sharing the app group could.
    void storeFromAnotherProcess(const std::string& key, const std::string& bytes)
    {
        fexo::test::ForkedProcess child([&](int) {
            auto defaults = fexo::UserDefaults::open(configuration.appGroup);
            return defaults && defaults->setData(bytes, key) ? 0 : 1;
        });
        ASSERT_EQ(child.wait(30s), 0);
    }

    fexo::test::TemporaryDirectory directory;
    fexo::test::ConfigurationValues configuration;
};

using UserDefaultsDataStorageDeathTest = UserDefaultsDataStorageTest;

std::string escaped(const std::string& text)
{
    return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

const Response fullRecord(fexo::Date(752000000.123456), NotificationData("Hello \"you\"", "Ada"), 42, "none", "A-1", false);

TEST_F(UserDefaultsDataStorageTest, SavedRecordsLoadBackEqualAndAreStoredAsJSONData)
{
    UserDefaultsDataStorage storage;
    storage.save(fullRecord, "response_A-1");
    storage.save(Response(std::nullopt, NotificationData("only text")), "response_");
    storage.save(Response(std::nullopt, NotificationData("second")), "response_");

    UserDefaultsDataStorage reopened;
    EXPECT_EQ(reopened.load("response_A-1"), fullRecord);
    EXPECT_EQ(reopened.load("response_"), Response(std::nullopt, NotificationData("second")));
    EXPECT_EQ(reopened.userDefaults().dataForKey("response_A-1"), fexo::JSONEncoder{}.encode(fullRecord));
    EXPECT_EQ(reopened.userDefaults().dataForKey("response_"), R"({"data":{"text":"second"}})");

    ::testing::internal::CaptureStdout();
    reopened.userDefaults().setObject("a string", "response_string");
    EXPECT_EQ(reopened.load("never written"), std::nullopt);
    EXPECT_EQ(reopened.load("response_string"), std::nullopt) << "a value of another kind";
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST_F(UserDefaultsDataStorageTest, ConcurrentFirstUsesOpenOneStore)
{
    UserDefaultsDataStorage storage;
    std::vector<std::thread> threads;
    std::vector<fexo::UserDefaults*> seen(4);
    for (std::size_t i = 0; i < seen.size(); ++i) threads.emplace_back([&, i] { seen[i] = &storage.userDefaults(); });
    for (auto& thread : threads) thread.join();
    for (auto* defaults : seen) EXPECT_EQ(defaults, seen[0]);
    EXPECT_EQ(seen[0]->suiteName(), configuration.appGroup);
}

TEST_F(UserDefaultsDataStorageDeathTest, AnAppGroupThatCannotBeOpenedEndsTheProcessOnFirstUseOnly)
{
    configuration.appGroup = "group/with/slashes";
    fexo::test::installConfiguration(directory.path(), configuration);
    UserDefaultsDataStorage storage; // constructing touches nothing
    EXPECT_DEATH(storage.load("response_1"), "Fatal error: App Group Not Found group/with/slashes");
}

TEST_F(UserDefaultsDataStorageDeathTest, BytesThatAreNotARecordEndTheProcessWithTheDecodingError)
{
    for (const std::string bytes : {"not json", R"({"id":5})"}) {
        storeFromAnotherProcess("response_bad", bytes);
        std::string description;
        try {
            (void)fexo::JSONDecoder{}.decode<Response>(bytes);
        } catch (const fexo::DecodingError& error) {
            description = error.description();
        }
        ASSERT_FALSE(description.empty());
        UserDefaultsDataStorage storage;
        EXPECT_DEATH(storage.load("response_bad"), escaped("APP load New ID NotificationService with error " + description));
        EXPECT_DEATH(storage.loadAll("response_"), escaped("APP load New ID NotificationService with error " + description));
    }
}

TEST_F(UserDefaultsDataStorageDeathTest, ARecordThatCannotBeEncodedEndsTheProcessWithTheLocalizedDescription)
{
    const Response unencodable(fexo::Date(std::nan("")));
    std::string localized;
    try {
        (void)fexo::JSONEncoder{}.encode(unencodable);
    } catch (const fexo::EncodingError& error) {
        localized = error.localizedDescription();
    }
    ASSERT_FALSE(localized.empty());
    UserDefaultsDataStorage storage;
    EXPECT_DEATH(storage.save(unencodable, "response_x"), escaped("APP save New ID NotificationService with error " + localized));
}

} // namespace
