#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <support/Completion.hpp>
#include <support/LoopbackServer.hpp>
#include <support/ToolSandbox.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::AnyValue;

AnyValue pushFor(AnyValue recipient)
{
    return AnyValue(
        AnyValue::Dictionary{{"aps", AnyValue::Dictionary{{"alert", AnyValue::Dictionary{{"title", "Push title"}}}}},
                             {"recipientId", std::move(recipient)},
                             {"registration_id", "token-1"}});
}

// What one push led to: the content delivered and what the library printed.
struct Handled {
    std::shared_ptr<fexo::UNMutableNotificationContent> content;
    std::string printed;
};

class ExtensionHandlerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        server.closeConnectionsAfterEachAnswer();
        sandbox.configure(server.baseURL());
    }

    // Answers `body`, hands one push to a handler dropped at once and waits until nothing is in
    // flight; the content must be delivered once, on another thread.
    Handled handle(std::string body, AnyValue userInfo)
    {
        server.setHandler([body](const httplib::Request&, httplib::Response& response) {
            response.set_content(body, "application/json");
        });
        fexo::test::Completion<std::shared_ptr<fexo::UNMutableNotificationContent>> delivered;
        testing::internal::CaptureStdout();
        fexo::FeXONotificationExtensionHandler().handleNotification(
            fexo::UNNotificationRequest(
                "id", std::make_shared<fexo::UNNotificationContent>("Push title", "Push body", std::move(userInfo))),
            delivered.handler());
        EXPECT_TRUE(fexo::URLSession::shared().waitUntilIdle(fexo::test::patience));
        Handled handled{delivered.wait().value_or(nullptr), testing::internal::GetCapturedStdout()};
        EXPECT_EQ(delivered.calls(), 1);
        EXPECT_NE(delivered.thread(), std::this_thread::get_id());
        if (!handled.content) handled.content = std::make_shared<fexo::UNMutableNotificationContent>();
        return handled;
    }
    nlohmann::json requestBody(std::size_t index) { return fexo::JSONDecoder::parse(server.requests().at(index).body); }

    fexo::test::ToolSandbox sandbox{FEXO_TOOL_PATH};
    fexo::test::LoopbackServer server;
};

TEST_F(ExtensionHandlerTest, AnAnswerRewritesTheContentStoresAFreshCopyAndDeliversOnceOnTheSessionThread)
{
    const auto before = fexo::Date::now();
    const auto handled = handle(
        R"({"id":"server-id","data":{"text":"Your code is 42","sender":"Bank"},"isRead":false})", pushFor("user-1"));
    EXPECT_EQ(requestBody(0), (nlohmann::json{{"recipientId", "user-1"}, {"registrationId", "token-1"}}));
    EXPECT_EQ(handled.content->title() + "|" + handled.content->body() + "|" + handled.printed,
              "Bank|Your code is 42|");
    const auto records = fexo::FeXOService().fetchAllNotifications().value();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].id->size(), 36u);
    EXPECT_NE(records[0].id, "server-id");
    EXPECT_GE(*fexo::ResponseAccess::createdAt(records[0]), before);
    EXPECT_EQ(records[0].data, fexo::NotificationData("Your code is 42", "Bank"));
    EXPECT_EQ(records[0].isRead, false);
    // Missing parts of an answer become empty text.
    const auto empty = handle("{}", pushFor("user-1"));
    EXPECT_EQ(empty.content->title() + "|" + empty.content->body(), "|");
}

TEST_F(ExtensionHandlerTest, AnUndecodablePushIsPrintedAndStillAsksWithEmptyIdentifiers)
{
    const std::pair<AnyValue, const char*> cases[] = {
        {pushFor(12), "typeMismatch"}, {AnyValue(AnyValue::Dictionary{{AnyValue(1), "x"}}), "NSCocoaErrorDomain"}};
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto handled = handle(R"({"data":{"text":"t","sender":"s"}})", cases[i].first);
        EXPECT_NE(handled.printed.find(cases[i].second), std::string::npos) << handled.printed;
        EXPECT_EQ(requestBody(i), (nlohmann::json{{"recipientId", ""}, {"registrationId", ""}}));
    }
}

} // namespace
