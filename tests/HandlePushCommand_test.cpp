// `fexo handle-push` as the extension process, `fexo list` as the app process, and a server in
// a third: the road of one push across processes, and exactly one delivered content per push
// whatever the server does.
#include <support/LoopbackServer.hpp>
#include <support/ToolSandbox.hpp>

#include <FeXOPlatform/Date.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <future>
#include <mutex>
#include <regex>

namespace {

using fexo::test::LoopbackServer;
using fexo::test::outputLines;
using fexo::test::ProcessResult;
using fexo::test::ToolSandbox;
using nlohmann::json;

const std::regex upperCaseUUID("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");

json delivered(const std::string& title, const std::string& body, bool rewritten)
{
    return json{{"title", title}, {"body", body}, {"rewritten", rewritten}};
}

// The content the run handed over, after checking that it handed over exactly one and that it
// was the last line.
json deliveredContent(const ProcessResult& result)
{
    const auto lines = outputLines(result.standardOutput);
    std::vector<json> deliveries;
    for (const auto& line : lines) {
        const auto value = json::parse(line, nullptr, false);
        if (value.is_object() && value.contains("rewritten")) deliveries.push_back(value);
    }
    EXPECT_EQ(deliveries.size(), 1u) << result.standardOutput;
    if (deliveries.empty()) return {};
    EXPECT_EQ(json::parse(lines.back(), nullptr, false), deliveries.front()) << "not the last line";
    return deliveries.front();
}

class HandlePushCommand : public ::testing::Test {
protected:
    ProcessResult handlePush(const json& userInfo, std::vector<std::string> extra = {}) const
    {
        std::vector<std::string> arguments{"handle-push"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return sandbox.run(arguments, userInfo.dump());
    }

    json storedRecords() const
    {
        const auto result = sandbox.run({"list", "--json"});
        EXPECT_EQ(result.exitCode, 0) << result.standardError;
        return json::parse(result.standardOutput, nullptr, false);
    }

    ToolSandbox sandbox{FEXO_TOOL_PATH};
};

json pushWithAlert(const std::string& title, const std::string& body)
{
    return json{{"recipientId", "recipient-7"},
                {"registration_id", "token-7"},
                {"aps", {{"alert", {{"title", title}, {"body", body}}}}}};
}

TEST_F(HandlePushCommand, TheServersRecordIsShownAndStoredForTheAppAtOnce)
{
    sandbox.serve();
    const json push = sandbox.queueNotification("recipient-1", "Your parcel is on its way", "FeXO Post");
    EXPECT_EQ(push["recipientId"], "recipient-1");

    const double before = fexo::Date::now().timeIntervalSinceReferenceDate();
    const auto result = handlePush(push);
    const double after = fexo::Date::now().timeIntervalSinceReferenceDate();
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_EQ(deliveredContent(result), delivered("FeXO Post", "Your parcel is on its way", true));

    const json records = storedRecords();
    ASSERT_EQ(records.size(), 1u) << records;
    const json& record = records[0];
    EXPECT_TRUE(std::regex_match(record.value("id", std::string()), upperCaseUUID)) << record;
    // The extension's own time of storing, not the server's time of queueing.
    ASSERT_TRUE(record.contains("createdAt") && record["createdAt"].is_number()) << record;
    EXPECT_GE(record["createdAt"].get<double>(), before);
    EXPECT_LE(record["createdAt"].get<double>(), after);
    EXPECT_EQ(record["data"], (json{{"sender", "FeXO Post"}, {"text", "Your parcel is on its way"}}));
    EXPECT_EQ(record["isRead"], false);
    EXPECT_FALSE(record.contains("errorCode"));

    // The queue is empty now: the server's "not found" answer still decodes as a record, so it
    // is delivered as rewritten content with an empty title and body, and stored like any other.
    const auto again = handlePush(push);
    EXPECT_EQ(again.exitCode, 0) << again.standardError;
    EXPECT_EQ(deliveredContent(again), delivered("", "", true));
    const json both = storedRecords();
    ASSERT_EQ(both.size(), 2u) << both;
    const json& notFound = both[0]["id"] == record["id"] ? both[1] : both[0];
    EXPECT_EQ(notFound["errorCode"], 404);
    EXPECT_EQ(notFound["errorMessage"], "Notification not found");
    EXPECT_FALSE(notFound.contains("data"));
    EXPECT_TRUE(std::regex_match(notFound.value("id", std::string()), upperCaseUUID)) << notFound;
    EXPECT_NE(notFound["id"], record["id"]);
}

TEST_F(HandlePushCommand, ATransportFailureDeliversTheOriginalOnceAfterTheLibrarysLine)
{
    sandbox.configure("http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort()));
    const auto result = handlePush(pushWithAlert("Original title", "Original body"));

    EXPECT_EQ(result.exitCode, 3) << result.standardError;
    EXPECT_EQ(deliveredContent(result), delivered("Original title", "Original body", false));
    const auto lines = outputLines(result.standardOutput);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "Notifications Content ErrorCould not connect to the server.");
    EXPECT_EQ(storedRecords(), json::array());
}

TEST_F(HandlePushCommand, AServerThatNeverAnswersGetsTheOriginalDeliveredOnceAtTheTimeLimit)
{
    std::promise<void> arrived;
    std::once_flag arrival;
    LoopbackServer server;
    // Declared after the server so that it is destroyed first: a broken promise wakes the
    // blocked handler, and the server can stop.
    std::promise<void> release;
    server.setHandler([&, answer = release.get_future().share()](const httplib::Request&, httplib::Response&) {
        std::call_once(arrival, [&] { arrived.set_value(); });
        answer.wait_for(std::chrono::seconds(30));
    });
    sandbox.configure(server.baseURL());

    const auto result = handlePush(pushWithAlert("Original title", "Original body"), {"--timeout", "0.5"});

    EXPECT_EQ(result.exitCode, 3) << result.standardError;
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(deliveredContent(result), delivered("Original title", "Original body", false));
    EXPECT_EQ(result.standardOutput.find("Notifications Content Error"), std::string::npos);
    // The request really was pending when the limit passed.
    EXPECT_EQ(arrived.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(storedRecords(), json::array());
    release.set_value();
}

TEST_F(HandlePushCommand, TwoPushesOfTheSameServerRecordAreStoredTwice)
{
    LoopbackServer server;
    const json serverRecord{{"createdAt", 1.5},
                            {"data", {{"sender", "Ann"}, {"text", "Same text"}}},
                            {"id", "server-record-1"},
                            {"isRead", false}};
    server.setHandler([&serverRecord](const httplib::Request&, httplib::Response& response) {
        response.set_content(serverRecord.dump(), "application/json");
    });
    sandbox.configure(server.baseURL());

    for (int push = 0; push < 2; ++push) {
        const auto result = handlePush(pushWithAlert("t", "b"));
        EXPECT_EQ(result.exitCode, 0) << result.standardError;
        EXPECT_EQ(deliveredContent(result), delivered("Ann", "Same text", true));
    }

    const json records = storedRecords();
    ASSERT_EQ(records.size(), 2u) << records;
    EXPECT_NE(records[0]["id"], records[1]["id"]);
    for (const json& record : records) {
        EXPECT_TRUE(std::regex_match(record.value("id", std::string()), upperCaseUUID)) << record;
        EXPECT_NE(record["createdAt"], 1.5);
        EXPECT_EQ(record["data"], serverRecord["data"]);
    }

    // What went over the wire: the push's two identifiers and the configured credentials.
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    for (const auto& request : requests) {
        EXPECT_EQ(request.method, "POST");
        EXPECT_EQ(request.path, "/api/Notification/GetNotificationContent");
        EXPECT_EQ(json::parse(request.body), (json{{"recipientId", "recipient-7"}, {"registrationId", "token-7"}}));
        EXPECT_EQ(request.header("client_id"), sandbox.values().clientId);
        EXPECT_EQ(request.header("client_secret"), sandbox.values().clientSecret);
    }
}

} // namespace
