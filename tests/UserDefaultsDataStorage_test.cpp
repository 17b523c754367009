#include <FeXONotificationService/UserDefaultsDataStorage.hpp>

#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <regex>
#include <sys/mount.h>

namespace {

using fexo::NotificationData;
using fexo::Response;
using fexo::UserDefaultsDataStorage;

class UserDefaultsDataStorageTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ::setenv("FEXO_APP_GROUPS_DIR", (directory.path() / "groups").c_str(), 1);
        fexo::test::installConfiguration(directory.path(), configuration);
    }
    void TearDown() override { ::unsetenv("FEXO_APP_GROUPS_DIR"); }

    fexo::test::TemporaryDirectory directory;
    fexo::test::ConfigurationValues configuration;
};

using UserDefaultsDataStorageDeathTest = UserDefaultsDataStorageTest;

const Response fullRecord(fexo::Date(752000000.123456), NotificationData("Hello \"you\"", "Ada"), 42, "none", "A-1", false);

TEST_F(UserDefaultsDataStorageTest, SavedRecordsLoadBackEqualAsJSONDataAndAnythingElseIsAbsent)
{
    UserDefaultsDataStorage storage; // constructing touches nothing
    EXPECT_FALSE(std::filesystem::exists(directory.path() / "groups"));
    storage.save(fullRecord, "response_A-1");
    storage.save(Response(std::nullopt, NotificationData("first")), "response_");
    storage.save(Response(std::nullopt, NotificationData("second")), "response_");

    UserDefaultsDataStorage reopened;
    EXPECT_EQ(reopened.load("response_A-1"), fullRecord);
    EXPECT_EQ(reopened.userDefaults().dataForKey("response_A-1"), fexo::JSONEncoder{}.encode(fullRecord));
    EXPECT_EQ(reopened.userDefaults().dataForKey("response_"), R"({"data":{"text":"second"}})");
    ::testing::internal::CaptureStdout();
    reopened.userDefaults().setObject("a string", "response_string");
    EXPECT_EQ(reopened.load("never written"), std::nullopt);
    EXPECT_EQ(reopened.load("response_string"), std::nullopt) << "a value of another kind";
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

// The store is on a file system with no space left: the write is dropped with one line on
// standard error, the store keeps what it had, and the caller goes on.
TEST_F(UserDefaultsDataStorageTest, AFullDiskCostsOnlyTheChange)
{
    const auto mountPoint = directory.path() / "small";
    std::filesystem::create_directory(mountPoint);
    if (::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=320k") != 0) GTEST_SKIP() << "cannot mount a tmpfs: " << std::strerror(errno);
    ::setenv("FEXO_APP_GROUPS_DIR", mountPoint.c_str(), 1);
    {
        UserDefaultsDataStorage storage;
        storage.save(fullRecord, "response_A-1");
        std::ofstream filler(mountPoint / "filler", std::ios::binary);
        const std::string block(4096, 'f');
        while (filler.write(block.data(), block.size()) && filler.flush()) {
        }
        Response large = fullRecord;
        large.data = NotificationData(std::string(64 * 1024, 'x'));
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        storage.save(large, "response_large");
        storage.save(large, "response_A-1");
        const std::string errors = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 2) << errors;
        EXPECT_NE(errors.find(storage.userDefaults().databasePath().string() + "\" could not be written (database or disk is full)"),
                  std::string::npos) << errors;
        EXPECT_EQ(UserDefaultsDataStorage().load("response_A-1"), fullRecord);
        EXPECT_EQ(UserDefaultsDataStorage().load("response_large"), std::nullopt);
    }
    EXPECT_EQ(::umount2(mountPoint.c_str(), MNT_DETACH), 0);
}

std::string escaped(const std::string& text)
{
    return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

template <typename Error, typename Call>
std::string failureOf(Call call, std::string (Error::*describe)() const)
{
    try {
        call();
    } catch (const Error& error) {
        return (error.*describe)();
    }
    return "no failure";
}

TEST_F(UserDefaultsDataStorageDeathTest, StoresThatCannotOpenAndRecordsThatCannotBeCodedEndTheProcess)
{
    UserDefaultsDataStorage storage;
    for (const std::string bytes : {"not json", R"({"id":5})"}) {
        storage.userDefaults().setData(bytes, "response_bad");
        const auto description = failureOf<fexo::DecodingError>([&] { (void)fexo::JSONDecoder{}.decode<Response>(bytes); },
                                                                 &fexo::DecodingError::description);
        EXPECT_DEATH(storage.load("response_bad"), escaped("APP load New ID NotificationService with error " + description));
        EXPECT_DEATH(storage.loadAll("response_"), escaped("APP load New ID NotificationService with error " + description));
    }
    const Response unencodable(fexo::Date(std::nan("")));
    const auto localized = failureOf<fexo::EncodingError>([&] { (void)fexo::JSONEncoder{}.encode(unencodable); },
                                                          &fexo::EncodingError::localizedDescription);
    EXPECT_DEATH(storage.save(unencodable, "response_x"), escaped("APP save New ID NotificationService with error " + localized));

    configuration.appGroup = "group/with/slashes";
    fexo::test::installConfiguration(directory.path(), configuration);
    EXPECT_DEATH(UserDefaultsDataStorage().load("response_1"), "Fatal error: App Group Not Found group/with/slashes");
}

} // namespace
