#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/NSException.hpp>

#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <latch>
#include <thread>

namespace {

using fexo::NSException;
using fexo::test::TemporaryDirectory;

const std::string fileReason =
    " FeXO notifications framework could not find a valid FeXOService-Info.plist in your project.";

void writeWithPython(const std::filesystem::path& directory, const std::string& dictionary, bool binary)
{
    fexo::test::writeConfigurationWithPython(directory, dictionary, binary);
    fexo::Bundle::main().setResourcesDirectory(directory);
    fexo::resetSharedConfigurationForTesting();
}

// The exception that the next load raises, or nothing.
std::optional<NSException> loadFailure()
{
    try {
        (void)fexo::sharedConfiguration();
        return std::nullopt;
    } catch (const NSException& exception) {
        return exception;
    }
}

const std::string validKeys =
    "'FEXO_BASE_URL': 'https://push.example.test/', 'CLIENT_SECRET': 's3cret', 'CLIENT_ID': 'client', "
    "'APP_GROUP': 'group.com.example', 'BUNDLE_ID': 'com.example.app'";

class ServiceConfigurationTest : public ::testing::TestWithParam<bool> {
protected:
    TemporaryDirectory directory;
};

TEST_P(ServiceConfigurationTest, ReadsTheFiveStringsExactlyAsTheyStand)
{
    writeWithPython(directory.path(), "{" + validKeys + ", 'EXTRA': 42}", GetParam());
    const auto& configuration = fexo::sharedConfiguration();
    EXPECT_EQ(configuration.baseURL, "https://push.example.test/");
    EXPECT_EQ(configuration.clientSecret, "s3cret");
    EXPECT_EQ(configuration.clientId, "client");
    EXPECT_EQ(configuration.appGroup, "group.com.example");
    EXPECT_EQ(configuration.bundleId, "com.example.app");
}

TEST_P(ServiceConfigurationTest, FirstFailingKeyInFileOrderDecidesTheMessage)
{
    const char* keys[] = {"FEXO_BASE_URL", "CLIENT_SECRET", "CLIENT_ID", "APP_GROUP", "BUNDLE_ID"};
    // Every key broken in each of the three ways; only the first in file order is reported.
    for (const std::string brokenValue : {"<absent>", "''", "7", "True", "['x']", "{'a': 'b'}"}) {
        for (int first = 0; first < 5; ++first) {
            std::string dictionary = "{";
            for (int k = 0; k < 5; ++k) {
                if (k < first) {
                    dictionary += std::string("'") + keys[k] + "': 'value', ";
                } else if (brokenValue != "<absent>") {
                    dictionary += std::string("'") + keys[k] + "': " + brokenValue + ", ";
                }
            }
            dictionary += "}";
            SCOPED_TRACE(dictionary);
            writeWithPython(directory.path(), dictionary, GetParam());
            const auto failure = loadFailure();
            ASSERT_TRUE(failure.has_value());
            EXPECT_EQ(failure->name(), "NSObjectNotAvailableException");
            EXPECT_EQ(failure->reason(), std::string(keys[first]) + " is not found in FeXOService-Info.plist");
        }
    }
}

TEST_P(ServiceConfigurationTest, TopLevelThatIsNotADictionaryIsTheFileMessage)
{
    writeWithPython(directory.path(), "['FEXO_BASE_URL', 'x']", GetParam());
    const auto failure = loadFailure();
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->name(), "NSGenericException");
    EXPECT_EQ(failure->reason(), fileReason);
}

INSTANTIATE_TEST_SUITE_P(BothForms, ServiceConfigurationTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Binary" : "XML"; });

TEST(ServiceConfiguration, MissingOrUnreadableFileIsTheFileMessageWithItsLeadingBlank)
{
    TemporaryDirectory directory;
    fexo::Bundle::main().setResourcesDirectory(directory.path());
    fexo::resetSharedConfigurationForTesting();
    auto failure = loadFailure();
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->name(), "NSGenericException");
    EXPECT_EQ(failure->reason(), fileReason);

    std::ofstream(directory.path() / "FeXOService-Info.plist") << "not a property list";
    fexo::resetSharedConfigurationForTesting();
    failure = loadFailure();
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->reason(), fileReason);
}

TEST(ServiceConfiguration, RaisingTheSameConditionRaisesTheSameObject)
{
    TemporaryDirectory directory;
    std::vector<const NSException*> raised;
    auto previous = NSException::setRaiseHook([&](const NSException& e) { raised.push_back(&e); });
    fexo::Bundle::main().setResourcesDirectory(directory.path());
    for (int i = 0; i < 2; ++i) {
        fexo::resetSharedConfigurationForTesting();
        (void)fexo::sharedConfiguration();
    }
    NSException::setRaiseHook(std::move(previous));
    ASSERT_EQ(raised.size(), 2u);
    EXPECT_EQ(raised[0], raised[1]);
}

TEST(ServiceConfiguration, AHookThatReturnsLeavesFiveEmptyValuesForTheProcess)
{
    TemporaryDirectory directory;
    fexo::test::ConfigurationValues values;
    values.clientId = "";
    fexo::test::installConfiguration(directory.path(), values);
    int raises = 0;
    auto previous = NSException::setRaiseHook([&](const NSException&) { ++raises; });
    const auto& first = fexo::sharedConfiguration();
    const auto& second = fexo::sharedConfiguration();
    NSException::setRaiseHook(std::move(previous));
    EXPECT_EQ(raises, 1);
    EXPECT_EQ(&first, &second);
    for (const auto* value : {&first.baseURL, &first.clientSecret, &first.clientId, &first.appGroup, &first.bundleId}) {
        EXPECT_EQ(*value, "");
    }
}

TEST(ServiceConfiguration, LoadsOnceEvenWhenTheFileChangesOrManyThreadsAskAtOnce)
{
    TemporaryDirectory directory;
    fexo::test::ConfigurationValues values;
    values.baseURL = "http://first.test";
    fexo::test::installConfiguration(directory.path(), values);

    constexpr int threads = 8;
    std::latch start(threads);
    std::vector<const fexo::ServiceConfiguration*> seen(threads);
    std::vector<std::thread> workers;
    for (int i = 0; i < threads; ++i) {
        workers.emplace_back([&, i] {
            start.arrive_and_wait();
            seen[i] = &fexo::sharedConfiguration();
        });
    }
    for (auto& w : workers) w.join();
    for (const auto* s : seen) EXPECT_EQ(s, seen[0]);

    values.baseURL = "http://second.test";
    ASSERT_TRUE(fexo::PropertyList::writeFile(values.toPropertyList(), directory.path() / "FeXOService-Info.plist",
                                              fexo::PropertyList::Format::binary));
    EXPECT_EQ(fexo::sharedConfiguration().baseURL, "http://first.test");
}

} // namespace
