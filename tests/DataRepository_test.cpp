#include <FeXONotificationService/DataRepository.hpp>
#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <support/Configuration.hpp>
#include <support/ForkedProcess.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

namespace {

using fexo::DataRepository;
using fexo::NotificationData;
using fexo::Response;
using fexo::test::ForkedProcess;
using ::testing::UnorderedElementsAre;
using namespace std::chrono_literals;

class DataRepositoryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ::setenv("FEXO_APP_GROUPS_DIR", (directory.path() / "groups").c_str(), 1);
        fexo::test::installConfiguration(directory.path(), fexo::test::ConfigurationValues{});
    }
    void TearDown() override { ::unsetenv("FEXO_APP_GROUPS_DIR"); }

    static DataRepository makeRepository() { return DataRepository(std::make_shared<fexo::UserDefaultsDataStorage>()); }

    fexo::UserDefaults& defaults() { return repository.dataStorage()->userDefaults(); }

    fexo::test::TemporaryDirectory directory;
    DataRepository repository = makeRepository();
};

Response record(std::optional<std::string> id, std::string text, std::optional<bool> isRead = std::nullopt)
{
    return Response(std::nullopt, NotificationData(std::move(text), "sender"), std::nullopt, std::nullopt, std::move(id), isRead);
}

TEST_F(DataRepositoryTest, RecordsLiveUnderTheirIdAndALaterWriteReplaces)
{
    repository.write(record(std::nullopt, "first without id"));
    repository.write(record(std::nullopt, "second without id"));
    repository.write(record("7", "first"));
    repository.write(record("7", "second"));

    EXPECT_EQ(defaults().keysWithPrefix(""), (std::vector<std::string>{"response_", "response_7"}));
    EXPECT_EQ(repository.fetchNotification(""), record(std::nullopt, "second without id"));
    EXPECT_EQ(repository.fetchNotification("7"), record("7", "second"));
    EXPECT_EQ(repository.fetchNotification("8"), std::nullopt);

    const DataRepository copy = repository; // copies share the storage
    EXPECT_EQ(copy.dataStorage(), repository.dataStorage());
    ::testing::internal::CaptureStdout();
    DataRepository(copy).deleteNotification("7");
    DataRepository(copy).deleteNotification("7");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(repository.fetchNotification("7"), std::nullopt);
}

TEST_F(DataRepositoryTest, OnlyKeysWithTheExactPrefixAreRecords)
{
    for (const char* foreign : {"host.setting", "Response_1", "response", "respons_1", "RESPONSE_2"}) {
        defaults().setData(R"({"id":"foreign"})", foreign);
    }
    defaults().setObject(5, "launches");
    EXPECT_TRUE(repository.fetchAllNotifications().empty());

    repository.write(record("a", "A"));
    repository.write(record("b", "B"));
    EXPECT_THAT(repository.fetchAllNotifications(), UnorderedElementsAre(record("a", "A"), record("b", "B")));

    repository.deleteAllNotifications();
    repository.deleteAllNotifications();
    EXPECT_TRUE(repository.fetchAllNotifications().empty());
    EXPECT_EQ(defaults().dictionaryRepresentation().size(), 6u) << "foreign keys stay";
}

TEST_F(DataRepositoryTest, MarkAsReadWritesACopyUnderItsOwnId)
{
    repository.write(record("1", "unread"));
    defaults().setData(fexo::JSONEncoder{}.encode(record("other", "moved")), "response_old");
    const auto before = defaults().dictionaryRepresentation();

    ::testing::internal::CaptureStdout();
    repository.markNotificationAsRead("missing");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Item Not Found!\n");
    EXPECT_EQ(defaults().dictionaryRepresentation(), before);

    repository.markNotificationAsRead("1");
    EXPECT_EQ(repository.fetchNotification("1"), record("1", "unread", true));
    const auto marked = defaults().dataForKey("response_1");
    repository.markNotificationAsRead("1");
    EXPECT_EQ(defaults().dataForKey("response_1"), marked);

    repository.markNotificationAsRead("old");
    EXPECT_EQ(repository.fetchNotification("other"), record("other", "moved", true));
    EXPECT_EQ(repository.fetchNotification("old"), record("other", "moved")) << "the old entry stays";
}

TEST_F(DataRepositoryTest, FetchAllReadsTenThousandRecords)
{
    constexpr int count = 10000;
    defaults().performExclusively([&] {
        for (int i = 0; i < count; ++i) repository.write(record("id-" + std::to_string(i), "text " + std::to_string(i)));
    });
    const auto all = repository.fetchAllNotifications();
    std::set<std::string> ids;
    for (const auto& r : all) ids.insert(*r.id);
    EXPECT_EQ(ids.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(repository.fetchNotification("id-9999"), record("id-9999", "text 9999"));
}

// The extension keeps rewriting one record while the app marks it as read: the read-then-write of
// marking must never put back a version older than the last one written.
TEST_F(DataRepositoryTest, MarkingBesideAnotherProcessNeverLosesItsWrite)
{
    constexpr int versions = 300;
    repository.write(record("shared", "v0"));
    const std::string last = "v" + std::to_string(versions - 1);
    fexo::test::StartGate gate;
    ForkedProcess writer([&](int) {
        gate.pass();
        auto own = makeRepository();
        for (int v = 1; v < versions; ++v) own.write(record("shared", "v" + std::to_string(v)));
        return 0;
    });
    ForkedProcess marker([&](int) {
        gate.pass();
        auto own = makeRepository();
        for (int round = 0; round < 20000; ++round) {
            own.markNotificationAsRead("shared");
            const auto seen = own.fetchNotification("shared");
            if (seen && seen->data->text == last && seen->isRead == true) return 0;
        }
        return 2;
    });
    gate.open();
    EXPECT_EQ(writer.wait(60s), 0);
    EXPECT_EQ(marker.wait(60s), 0);
    const auto final = repository.fetchNotification("shared");
    ASSERT_TRUE(final);
    EXPECT_EQ(fexo::JSONEncoder{}.encode(*final), fexo::JSONEncoder{}.encode(record("shared", last, true)));
}

} // namespace
