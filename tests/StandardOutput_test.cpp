#include <FeXOPlatform/StandardOutput.hpp>

#include <gtest/gtest.h>

namespace {

TEST(StandardOutput, ALineStaysOneLineAndNeverDrivesATerminal)
{
    const std::pair<std::string, std::string> cases[] = {
        {"Item Not Found!", "Item Not Found!\n"},
        {"key \"\x1B]0;owned\x07\" two\nlines\r\x7F", "key \"\\x1B]0;owned\\x07\" two\\x0Alines\\x0D\\x7F\n"},
        {"C1 \xC2\x9B"
         "2J, not \xC2\xA0 nor \xC3\xA9",
         "C1 \\xC2\\x9B2J, not \xC2\xA0 nor \xC3\xA9\n"},
    };
    for (const auto& [text, printed] : cases) {
        testing::internal::CaptureStdout();
        fexo::printLine(text);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), printed);
    }
}

} // namespace
