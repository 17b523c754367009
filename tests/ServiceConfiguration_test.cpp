#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/NSException.hpp>

#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

#include <fstream>

namespace {

using fexo::NSException;

const std::string fileReason =
    " FeXO notifications framework could not find a valid FeXOService-Info.plist in your project.";
const std::string validKeys =
    "'FEXO_BASE_URL': 'https://push.example.test/', 'CLIENT_SECRET': ' ', 'CLIENT_ID': 'client', "
    "'APP_GROUP': 'a\\x00b', 'BUNDLE_ID': 'com.example.app'";

// The exception that loading the file written by Python from `dictionary` raises, or nothing.
std::optional<NSException> loadFailure(const std::filesystem::path& directory, const std::string& dictionary,
                                       bool binary)
{
    if (!dictionary.empty()) fexo::test::writeConfigurationWithPython(directory, dictionary, binary);
    fexo::Bundle::main().setResourcesDirectory(directory);
    fexo::resetSharedConfigurationForTesting();
    try {
        (void)fexo::sharedConfiguration();
        return std::nullopt;
    } catch (const NSException& exception) {
        return exception;
    }
}

TEST(ServiceConfiguration, ReadsTheFiveStringsOnceExactlyAsTheyStandNulAndBlanksIncluded)
{
    fexo::test::TemporaryDirectory directory;
    ASSERT_FALSE(loadFailure(directory.path(), "{" + validKeys + ", 'EXTRA': 42}", true));
    std::ofstream(directory.path() / "FeXOService-Info.plist") << "changed"; // not read again
    const auto& c = fexo::sharedConfiguration();
    EXPECT_EQ(c.baseURL + "|" + c.clientSecret + "|" + c.clientId + "|" + c.appGroup + "|" + c.bundleId,
              std::string("https://push.example.test/| |client|a\0b|com.example.app", 55));
}

TEST(ServiceConfiguration, FirstFailingKeyInFileOrderDecidesTheMessage)
{
    fexo::test::TemporaryDirectory directory;
    const char* keys[] = {"FEXO_BASE_URL", "CLIENT_SECRET", "CLIENT_ID", "APP_GROUP", "BUNDLE_ID"};
    // Every key from `first` on broken in one way; only the first in file order is reported.
    for (const std::string broken : {"<absent>", "''", "7", "True", "['x']"}) {
        for (int first = 0; first < 5; ++first) {
            std::string dictionary = "{";
            for (int k = 0; k < 5; ++k) {
                if (k < first || broken != "<absent>")
                    dictionary += "'" + std::string(keys[k]) + "': " + (k < first ? "'v'" : broken) + ",";
            }
            SCOPED_TRACE(dictionary);
            const auto failure = loadFailure(directory.path(), dictionary + "}", first % 2 == 0);
            ASSERT_TRUE(failure.has_value());
            EXPECT_EQ(failure->name(), "NSObjectNotAvailableException");
            EXPECT_EQ(failure->reason(), std::string(keys[first]) + " is not found in FeXOService-Info.plist");
        }
    }
}

TEST(ServiceConfiguration, AFileThatIsAbsentUnreadableTooLargeOrNoDictionaryIsTheFileMessage)
{
    fexo::test::TemporaryDirectory directory;
    const auto file = directory.path() / "FeXOService-Info.plist";
    const auto expectFileMessage = [&](const std::string& dictionary) {
        const auto failure = loadFailure(directory.path(), dictionary, false);
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->name(), "NSGenericException");
        EXPECT_EQ(failure->reason(), fileReason);
    };
    expectFileMessage("");
    expectFileMessage("['FEXO_BASE_URL', 'x']");
    std::ofstream(file) << "not a property list";
    expectFileMessage("");
    // A valid file, made larger than the limit by blanks at its end, is refused unread.
    fexo::test::writeConfigurationWithPython(directory.path(), "{" + validKeys + "}", true);
    std::ofstream(file, std::ios::app) << std::string(fexo::maximumConfigurationFileSize, ' ');
    expectFileMessage("");
}

TEST(ServiceConfiguration, AHookThatReturnsLeavesFiveEmptyValuesAndTheSameObjectIsRaisedAgain)
{
    fexo::test::TemporaryDirectory directory;
    std::vector<const NSException*> raised;
    auto previous = NSException::setRaiseHook([&](const NSException& e) { raised.push_back(&e); });
    (void)loadFailure(directory.path(), "", false);
    const auto& first = fexo::sharedConfiguration();
    EXPECT_EQ(&fexo::sharedConfiguration(), &first);
    (void)loadFailure(directory.path(), "", false);
    NSException::setRaiseHook(std::move(previous));
    ASSERT_EQ(raised.size(), 2u);
    EXPECT_EQ(raised[0], raised[1]);
    for (const auto* value : {&first.baseURL, &first.clientSecret, &first.clientId, &first.appGroup, &first.bundleId}) {
        EXPECT_EQ(*value, "");
    }
}

} // namespace
