#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/EncodingError.hpp>

#include <support/ToolSandbox.hpp>

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <sys/mount.h>

namespace {

using fexo::NotificationData;
using fexo::Response;
using fexo::UserDefaultsDataStorage;

class UserDefaultsDataStorageTest : public ::testing::Test {
protected:
    fexo::test::TemporaryDirectory directory;
    fexo::test::ToolSandbox sandbox{FEXO_TOOL_PATH};
};

using UserDefaultsDataStorageDeathTest = UserDefaultsDataStorageTest;

const Response fullRecord(fexo::Date(752000000.123456), NotificationData("Hello \"you\"", "Ada"), 42, "none", "A-1",
                          false);

// The store is on a file system with no space left: the write is dropped with one line on
// standard error, the store keeps what it had, and the caller goes on.
TEST_F(UserDefaultsDataStorageTest, AFullDiskCostsOnlyTheChange)
{
    const auto mountPoint = directory.path() / "small";
    std::filesystem::create_directory(mountPoint);
    if (::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=320k") != 0)
        GTEST_SKIP() << "cannot mount a tmpfs: " << std::strerror(errno);
    ::setenv("FEXO_APP_GROUPS_DIR", mountPoint.c_str(), 1);
    {
        UserDefaultsDataStorage storage; // constructing touches nothing
        EXPECT_TRUE(std::filesystem::is_empty(mountPoint));
        storage.save(fullRecord, "response_A-1");
        std::ofstream filler(mountPoint / "filler", std::ios::binary);
        const std::string block(4096, 'f');
        while (filler.write(block.data(), block.size()) && filler.flush()) { }
        Response large = fullRecord;
        large.data = NotificationData(std::string(64 * 1024, 'x'));
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        storage.save(large, "response_large");
        storage.save(large, "response_A-1");
        const std::string line = "The app group store \"" + storage.userDefaults().databasePath().string() +
                                 "\" could not be written (database or disk is full); the change was not kept.\n";
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), line + line);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(UserDefaultsDataStorage().load("response_A-1"), fullRecord);
        EXPECT_EQ(UserDefaultsDataStorage().load("response_large"), std::nullopt);
    }
    EXPECT_EQ(::umount2(mountPoint.c_str(), MNT_DETACH), 0);
}

TEST_F(UserDefaultsDataStorageDeathTest, StoresThatCannotOpenAndRecordsThatCannotBeCodedEndTheProcess)
{
    UserDefaultsDataStorage storage;
    // Loading tells the decoder's description, saving the encoder's localized one.
    for (const auto& [bytes, description] :
         {std::pair("not json", "dataCorrupted(Context(codingPath: []"),
          std::pair(R"({"id":5})", R"(typeMismatch(String, Context(codingPath: ["id"])")}) {
        storage.userDefaults().setData(bytes, "response_bad");
        const std::string message = std::string("APP load New ID NotificationService with error ") + description;
        EXPECT_DEATH(storage.load("response_bad"), ::testing::HasSubstr(message));
        EXPECT_DEATH(storage.loadAll("response_"), ::testing::HasSubstr(message));
    }
    const auto localized = fexo::EncodingError::invalidValue("", "").localizedDescription();
    EXPECT_DEATH(storage.save(Response(fexo::Date(std::nan(""))), "response_x"),
                 ::testing::HasSubstr("APP save New ID NotificationService with error " + localized));

    fexo::test::installConfiguration(sandbox.resources(), {.appGroup = "group/with/slashes"});
    EXPECT_DEATH(UserDefaultsDataStorage().load("response_1"), "Fatal error: App Group Not Found group/with/slashes");
}

} // namespace
