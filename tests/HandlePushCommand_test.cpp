// `fexo handle-push` as the extension process and `fexo list` as the app process, against a
// server in a third: exactly one delivered content per push, whatever the server does. The
// server's record shown and stored is the agent's and the inbox commands' case.
#include <support/LoopbackServer.hpp>
#include <support/ToolSandbox.hpp>

#include <gtest/gtest.h>

#include <future>

namespace {

using fexo::test::LoopbackServer;
using fexo::test::ProcessResult;
using nlohmann::json;

// The one delivered content, which must be the only such line and the last.
json delivered(const ProcessResult& result)
{
    const auto lines = fexo::test::outputLines(result.standardOutput);
    std::size_t deliveries = 0;
    for (const auto& line : lines) deliveries += line.find("\"rewritten\":") != std::string::npos;
    EXPECT_EQ(deliveries, 1u) << result.standardOutput;
    return lines.empty() ? json() : json::parse(lines.back(), nullptr, false);
}

class HandlePushCommand : public ::testing::Test {
protected:
    ProcessResult handlePush(const std::string& push, std::vector<std::string> extra = {}) const
    {
        extra.insert(extra.begin(), "handle-push");
        return sandbox.run(extra, push);
    }
    json stored() const { return json::parse(sandbox.run({"list", "--json"}).standardOutput, nullptr, false); }

    const std::string push = json{{"recipientId", "recipient-7"},
                                  {"registration_id", "token-7"},
                                  {"aps", {{"alert", {{"title", "Original"}, {"body", "Body"}}}}}}
                                 .dump();
    const json original{{"title", "Original"}, {"body", "Body"}, {"rewritten", false}, {"id", nullptr}};
    fexo::test::ToolSandbox sandbox{FEXO_TOOL_PATH};
};

TEST_F(HandlePushCommand, AServerThatNeverAnswersGetsTheOriginalDeliveredAtTheTimeLimit)
{
    LoopbackServer server;
    std::promise<void> release; // destroyed first: its broken promise frees the blocked handler
    server.setHandler([answer = release.get_future().share()](const httplib::Request&, httplib::Response&) {
        answer.wait_for(std::chrono::seconds(30));
    });
    sandbox.configure(server.baseURL());
    const auto result = handlePush(push, {"--timeout", "0.5"});
    EXPECT_EQ(result.exitCode, 3) << result.standardError;
    EXPECT_EQ(delivered(result), original);
    EXPECT_EQ(server.requests().size(), 1u); // asked, and given up on
    EXPECT_EQ(stored(), json::array());
}

TEST_F(HandlePushCommand, ARefusalIsStoredButTheOriginalIsShown)
{
    sandbox.serve(); // nothing queued for the recipient: the server refuses with 404
    const auto result = handlePush(push);
    EXPECT_EQ(result.exitCode, 3) << result.standardError;
    EXPECT_EQ(delivered(result), original);
    EXPECT_EQ(result.standardError, "fexo: the server sent no notification: error 404: Notification not found\n");
    const json records = stored();
    ASSERT_EQ(records.size(), 1u) << records;
    EXPECT_EQ(records[0]["errorCode"], 404);
}

TEST_F(HandlePushCommand, RefusesWhatIsNoPushOrTooLargeWithOneLine)
{
    sandbox.configure("http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort()));
    const std::string largest = push + std::string(65536 - push.size(), ' ');
    const std::tuple<std::string, std::vector<std::string>, int, std::string> cases[] = {
        {largest + " ", {}, 1, "fexo: the push is more than 65,536 bytes\n"},
        {std::string(20 << 20, '['), {}, 1, "fexo: the push is more than 65,536 bytes\n"},
        {"[1]", {}, 1, "fexo: the push must be a JSON object (its user-info dictionary)\n"},
        {"not json", {}, 1, "fexo: the push is not JSON: "},
        {largest, {"--timeout", "30"}, 3, ""},
        {push, {"--timeout", "nan"}, 1, "--timeout: a time limit is a finite number of seconds above 0, not nan"},
        {push, {"--timeout", "0"}, 1, "--timeout: a time limit is"},
    };
    for (const auto& [input, extra, exitCode, error] : cases) {
        const auto result = handlePush(input, extra);
        EXPECT_EQ(result.exitCode, exitCode) << error;
        EXPECT_NE(result.standardError.find(error), std::string::npos) << result.standardError;
        EXPECT_TRUE(exitCode != 1 || result.standardOutput.empty()) << error;
    }
    std::filesystem::remove(sandbox.resources() / "FeXOService-Info.plist"); // the library raises: one line, exit 1
    EXPECT_EQ(handlePush(push).standardError.rfind("fexo: NSGenericException:  FeXO notifications framework", 0), 0u);
}

} // namespace
