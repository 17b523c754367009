#include <common/ConfigurationFile.hpp>

#include <FeXOPlatform/PropertyList.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using fexo::tool::writeConfigurationFile;

TEST(ConfigurationFile, EverySettingReadsBackExactlyAndUnwritableTextWritesNothing)
{
    fexo::test::TemporaryDirectory directory;
    const auto folder = directory.path() / "made" / "here";
    const fexo::tool::ConfigurationSettings settings{"http://127.0.0.1:9/a?b=1&c=<2>", "s&cret </string>", "id \u00e9",
                                                     "group.a", "com.example.\U0001F600"};
    ASSERT_TRUE(writeConfigurationFile(folder, settings));
    const auto read = fexo::PropertyList::readFile(folder / "FeXOService-Info.plist");
    ASSERT_TRUE(read && read->dictionary());
    EXPECT_EQ(*read,
              fexo::PropertyListValue(fexo::PropertyListValue::Dictionary{{"FEXO_BASE_URL", settings.baseURL},
                                                                          {"CLIENT_SECRET", settings.clientSecret},
                                                                          {"CLIENT_ID", settings.clientId},
                                                                          {"APP_GROUP", settings.appGroup},
                                                                          {"BUNDLE_ID", settings.bundleId}}));

    for (const char* text : {"line\nbreak", "\xC3(", "nul\x01"}) {
        auto refused = settings;
        refused.clientId = text;
        EXPECT_FALSE(writeConfigurationFile(directory.path() / "refused", refused)) << text;
        EXPECT_FALSE(std::filesystem::exists(directory.path() / "refused" / "FeXOService-Info.plist")) << text;
    }
}

} // namespace
