#include <FeXONotificationService/DataRepository.hpp>
#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <support/ForkedProcess.hpp>
#include <support/ToolSandbox.hpp>

#include <gmock/gmock.h>

#include <chrono>

namespace {

using fexo::DataRepository;
using fexo::NotificationData;
using fexo::Response;
using namespace std::chrono_literals;

class DataRepositoryTest : public ::testing::Test {
protected:
    static DataRepository makeRepository() { return DataRepository(std::make_shared<fexo::UserDefaultsDataStorage>()); }
    fexo::UserDefaults& defaults() { return repository.dataStorage()->userDefaults(); }

    fexo::test::ToolSandbox sandbox{FEXO_TOOL_PATH};
    DataRepository repository = makeRepository();
};

Response record(std::optional<std::string> id, std::string text, std::optional<bool> isRead = std::nullopt)
{
    return Response(std::nullopt, NotificationData(std::move(text), "sender"), std::nullopt, std::nullopt,
                    std::move(id), isRead);
}

TEST_F(DataRepositoryTest, RecordsLiveUnderTheirIdAndOnlyTheExactPrefixIsTouched)
{
    for (const char* foreign : {"host.setting", "Response_1", "response", "respons_1"})
        defaults().setData(R"({"id":"x"})", foreign);
    EXPECT_TRUE(repository.fetchAllNotifications().empty());
    repository.write(record(std::nullopt, "first without id"));
    repository.write(record(std::nullopt, "second without id"));
    repository.write(record("7", "first"));
    repository.write(record("7", "second"));

    EXPECT_EQ(defaults().keysWithPrefix("response_"), (std::vector<std::string>{"response_", "response_7"}));
    EXPECT_THAT(repository.fetchAllNotifications(),
                ::testing::ElementsAre(record(std::nullopt, "second without id"), record("7", "second")));
    EXPECT_EQ(defaults().dataForKey("response_7"), fexo::JSONEncoder{}.encode(record("7", "second")))
        << "stored as JSON data";
    defaults().setObject(R"({"id":"s"})", "response_s");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(repository.fetchNotification("s"), std::nullopt) << "a value of another kind";
    EXPECT_EQ(repository.fetchNotification("8"), std::nullopt);

    const DataRepository copy = repository; // copies share the storage
    DataRepository(copy).deleteNotification("7");
    DataRepository(copy).deleteNotification("7");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(repository.fetchNotification("7"), std::nullopt);
    repository.deleteAllNotifications();
    EXPECT_TRUE(repository.fetchAllNotifications().empty());
    EXPECT_EQ(defaults().dictionaryRepresentation().size(), 4u) << "foreign keys stay";
}

TEST_F(DataRepositoryTest, MarkAsReadWritesACopyUnderItsOwnId)
{
    repository.write(record("1", "unread"));
    defaults().setData(fexo::JSONEncoder{}.encode(record("other", "moved")), "response_old");
    const auto before = defaults().dictionaryRepresentation();
    ::testing::internal::CaptureStdout();
    repository.markNotificationAsRead("missing");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Item Not Found!\n");
    EXPECT_EQ(defaults().dictionaryRepresentation(), before) << "nothing written";

    repository.markNotificationAsRead("1");
    EXPECT_EQ(repository.fetchNotification("1"), record("1", "unread", true));
    repository.markNotificationAsRead("old");
    EXPECT_EQ(repository.fetchNotification("other"), record("other", "moved", true));
    EXPECT_EQ(repository.fetchNotification("old"), record("other", "moved")) << "the old entry stays";
}

// Extensions in several processes write records while the app marks one that they keep
// rewriting: no write is lost, and the read-then-write of marking never puts back an older version.
// Every process opens the store anew and reads the others' changes from the log they leave.
TEST_F(DataRepositoryTest, ProcessesSideBySideLoseNoWrite)
{
    constexpr int versions = 200;
    repository.write(record("shared", "v0"));
    const std::string last = "v" + std::to_string(versions - 1);
    fexo::test::StartGate gate;
    std::vector<std::unique_ptr<fexo::test::ForkedProcess>> children;
    for (int w = 0; w < 3; ++w) {
        children.push_back(std::make_unique<fexo::test::ForkedProcess>([&, w] {
            gate.pass();
            auto own = makeRepository();
            for (int v = 1; v < versions; ++v) {
                own.write(record(std::to_string(w) + "." + std::to_string(v), std::string(v * 10, 'x')));
                if (w == 0) own.write(record("shared", "v" + std::to_string(v)));
                if (v % 5 == 0) own.deleteNotification(std::to_string(w) + "." + std::to_string(v));
            }
            return 0;
        }));
    }
    children.push_back(std::make_unique<fexo::test::ForkedProcess>([&] {
        gate.pass();
        auto own = makeRepository();
        // Until a deadline, not a number of rounds: a round that finds the record already read
        // writes nothing, so rounds can run out long before the writers' flushes let them finish.
        for (const auto until = std::chrono::steady_clock::now() + 50s; std::chrono::steady_clock::now() < until;) {
            own.markNotificationAsRead("shared");
            const auto seen = own.fetchNotification("shared");
            if (seen && seen->data->text == last && seen->isRead == true) return 0;
        }
        return 2;
    }));
    gate.open();
    for (auto& child : children) EXPECT_EQ(child->wait(60s), 0);
    EXPECT_EQ(repository.fetchNotification("shared"), record("shared", last, true));
    EXPECT_EQ(repository.fetchAllNotifications().size(), 1u + 3 * (versions - 1 - (versions - 1) / 5));
    EXPECT_EQ(repository.fetchNotification("2.199"), record("2.199", std::string(1990, 'x')));
}

} // namespace
