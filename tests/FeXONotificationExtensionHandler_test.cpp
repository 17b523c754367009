#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <support/Completion.hpp>
#include <support/LoopbackServer.hpp>
#include <support/ToolSandbox.hpp>

#include <gtest/gtest.h>

#include <future>

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

class ExtensionDeliveryTest : public ExtensionHandlerTest {
protected:
    fexo::FeXONotificationExtensionHandler::Delivery deliver(AnyValue userInfo, std::chrono::milliseconds limit)
    {
        return fexo::FeXONotificationExtensionHandler().deliver(
            fexo::UNNotificationRequest(
                "id", std::make_shared<fexo::UNNotificationContent>("Shown title", "Shown body", std::move(userInfo))),
            limit);
    }
    void answer(std::string body)
    {
        server.setHandler([body](const httplib::Request&, httplib::Response& response) {
            response.set_content(body, "application/json");
        });
    }
};

TEST_F(ExtensionDeliveryTest, OnlyARecordThatCarriesANotificationIsShownElseThePushsOwnAlert)
{
    struct Case {
        const char* answer;
        AnyValue push;
        const char* shown; // title|body
        bool rewritten;
        bool stored;
    };
    const AnyValue textAlert(AnyValue::Dictionary{{"aps", AnyValue::Dictionary{{"alert", "Plain alert"}}}});
    const Case cases[] = {
        {R"({"data":{"text":"Hi","sender":"Ann"}})", pushFor("u"), "Ann|Hi", true, true},
        {R"({"data":{"sender":"Ann"}})", pushFor("u"), "Ann|", true, true},
        {R"({"errorCode":404,"errorMessage":"Notification not found"})", pushFor("u"), "Push title|", false, true},
        {R"({"data":{"text":"","sender":""}})", textAlert, "|Plain alert", false, true},
        {"not json", textAlert, "|Plain alert", false, false},
        {"{}", AnyValue(AnyValue::Dictionary{}), "|", false, true},
    };
    for (const auto& c : cases) {
        answer(c.answer);
        testing::internal::CaptureStdout();
        const auto delivery = deliver(c.push, fexo::test::patience);
        const std::string printed = testing::internal::GetCapturedStdout();
        ASSERT_TRUE(delivery.content);
        EXPECT_EQ(delivery.content->title() + "|" + delivery.content->body(), c.shown) << c.answer;
        EXPECT_EQ(delivery.rewritten, c.rewritten) << c.answer;
        EXPECT_EQ(delivery.content->userInfo(), c.push) << c.answer;
        ASSERT_EQ(delivery.recordId.has_value(), c.stored) << c.answer;
        if (c.stored) {
            const auto record = fexo::FeXOService().fetchNotification(*delivery.recordId);
            ASSERT_TRUE(record.has_value()) << c.answer;
            EXPECT_EQ(record->carriesNotification(), c.rewritten) << c.answer;
        } else {
            EXPECT_NE(printed.find("Notifications Content Error"), std::string::npos) << printed;
        }
    }
}

TEST_F(ExtensionDeliveryTest, ReturnsWithItsOwnRequestWhileAnotherStallsAndAtItsLimitWhenItsOwnStalls)
{
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> stallContent{false};
    server.setHandler([&, released](const httplib::Request& request, httplib::Response& response) {
        if (request.path == "/api/Registration/RegisterNewDevice" || stallContent) released.wait();
        response.set_content(R"({"data":{"text":"Hi","sender":"Ann"}})", "application/json");
    });
    fexo::test::Completion<fexo::Result<fexo::RegisterDeviceModel>> registered;
    fexo::FeXOService().registerDevice("t", "d", "", "", "", fexo::PushProvider::FCM, registered.handler());

    const auto own = deliver(pushFor("u"), fexo::test::patience);
    EXPECT_TRUE(own.rewritten);
    EXPECT_TRUE(own.recordId.has_value());
    EXPECT_EQ(registered.calls(), 0); // the stalled registration is still in flight

    stallContent = true;
    const auto late = deliver(pushFor("u"), std::chrono::milliseconds(100));
    EXPECT_FALSE(late.rewritten);
    EXPECT_FALSE(late.recordId.has_value());
    EXPECT_EQ(late.content->title(), "Push title");

    release.set_value();
    EXPECT_TRUE(registered.wait().has_value());
    EXPECT_TRUE(fexo::URLSession::shared().waitUntilIdle(fexo::test::patience));
    EXPECT_EQ(fexo::FeXOService().fetchAllNotifications()->size(), 2u); // the late answer is still stored
}

} // namespace
