#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <support/Configuration.hpp>
#include <support/LoopbackServer.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <regex>
#include <thread>

namespace {

using namespace std::chrono_literals;
using fexo::AnyValue;
using fexo::UNMutableNotificationContent;

constexpr auto patience = 20s;

AnyValue pushFor(std::string recipient, std::string registration)
{
    return AnyValue(AnyValue::Dictionary{
        {"aps", AnyValue::Dictionary{{"alert", AnyValue::Dictionary{{"title", "Push title"}, {"body", "Push body"}}}}},
        {"recipientId", std::move(recipient)},
        {"registration_id", std::move(registration)},
        {"gcm.message_id", "0:1"},
    });
}

// A content whose mutable copy is not mutable content.
class FrozenContent : public fexo::UNNotificationContent {
public:
    using UNNotificationContent::UNNotificationContent;
    std::shared_ptr<UNNotificationContent> mutableCopy() const override
    {
        return std::make_shared<FrozenContent>(title(), body(), userInfo());
    }
};

// What one push led to: the content handler's calls and what the library printed.
struct Handled {
    int calls = 0;
    std::shared_ptr<UNMutableNotificationContent> content;
    std::thread::id thread;
    std::string printed;
};

class ExtensionHandlerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        server.closeConnectionsAfterEachAnswer();
        ::setenv("FEXO_APP_GROUPS_DIR", (directory.path() / "groups").c_str(), 1);
        configure(server.baseURL());
    }
    void TearDown() override { ::unsetenv("FEXO_APP_GROUPS_DIR"); }

    void configure(const std::string& baseURL) { fexo::test::installConfiguration(directory.path(), baseURL); }

    void answer(std::string body, int status = 200)
    {
        server.setHandler([body = std::move(body), status](const httplib::Request&, httplib::Response& response) {
            response.status = status;
            response.set_content(body, "application/json");
        });
    }

    // Hands one push to a handler that is dropped at once, and waits until the library has
    // nothing left in flight.
    Handled handle(std::shared_ptr<const fexo::UNNotificationContent> content)
    {
        auto handled = std::make_shared<Handled>();
        std::atomic<int> calls{0};
        testing::internal::CaptureStdout();
        {
            const fexo::FeXONotificationExtensionHandler handler;
            handler.handleNotification(fexo::UNNotificationRequest("id", std::move(content)),
                                       [handled, &calls](std::shared_ptr<UNMutableNotificationContent> delivered) {
                                           handled->content = std::move(delivered);
                                           handled->thread = std::this_thread::get_id();
                                           calls.fetch_add(1);
                                       });
        }
        EXPECT_TRUE(fexo::URLSession::shared().waitUntilIdle(patience));
        handled->printed = testing::internal::GetCapturedStdout();
        handled->calls = calls.load();
        return *handled;
    }

    Handled handle(AnyValue userInfo)
    {
        return handle(std::make_shared<fexo::UNNotificationContent>("Push title", "Push body", std::move(userInfo)));
    }

    std::vector<fexo::Response> stored() { return fexo::FeXOService().fetchAllNotifications().value(); }

    nlohmann::json requestBody(std::size_t index) { return fexo::JSONDecoder::parse(server.requests().at(index).body); }

    fexo::test::TemporaryDirectory directory;
    fexo::test::LoopbackServer server;
};

TEST_F(ExtensionHandlerTest, AnAnswerRewritesTheContentStoresACopyAndDeliversOnce)
{
    answer(R"({"id":"server-id","createdAt":1,"data":{"text":"Your code is 42","sender":"Bank"},"isRead":false,"extra":1})");
    const auto before = fexo::Date::now();
    const auto handled = handle(pushFor("user-1", "token-1"));

    EXPECT_EQ(requestBody(0), (nlohmann::json{{"recipientId", "user-1"}, {"registrationId", "token-1"}}));
    ASSERT_EQ(handled.calls, 1);
    EXPECT_NE(handled.thread, std::this_thread::get_id());
    EXPECT_EQ(handled.content->title(), "Bank");
    EXPECT_EQ(handled.content->body(), "Your code is 42");
    EXPECT_EQ(handled.printed, "");

    const auto records = stored();
    ASSERT_EQ(records.size(), 1u);
    const auto& record = records[0];
    EXPECT_TRUE(std::regex_match(*record.id, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")));
    EXPECT_GE(*fexo::ResponseAccess::createdAt(record), before);
    EXPECT_LE(*fexo::ResponseAccess::createdAt(record), fexo::Date::now());
    EXPECT_EQ(record.data, fexo::NotificationData("Your code is 42", "Bank"));
    EXPECT_EQ(record.isRead, false);
    EXPECT_EQ(fexo::FeXOService().fetchNotification(*record.id), record);
}

TEST_F(ExtensionHandlerTest, MissingPartsOfTheAnswerBecomeEmptyTextAndTheRecordIsStoredAsReceived)
{
    struct Case {
        const char* answer;
        const char* title;
        const char* body;
    };
    const Case cases[] = {
        {"{}", "", ""},
        {R"({"data":{"sender":"Only sender"}})", "Only sender", ""},
        {R"({"errorCode":404,"errorMessage":"Notification not found"})", "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.answer);
        fexo::FeXOService().deleteAllNotifications();
        answer(c.answer, 404);
        const auto handled = handle(pushFor("u", "t"));
        ASSERT_EQ(handled.calls, 1);
        EXPECT_EQ(handled.content->title(), c.title);
        EXPECT_EQ(handled.content->body(), c.body);
        const auto records = stored();
        ASSERT_EQ(records.size(), 1u);
        auto expected = fexo::JSONDecoder{}.decode<fexo::Response>(c.answer);
        expected.id = records[0].id;
        fexo::ResponseAccess::createdAt(expected) = fexo::ResponseAccess::createdAt(records[0]);
        EXPECT_EQ(records[0], expected);
    }
}

TEST_F(ExtensionHandlerTest, AFailedRequestPrintsTheErrorStoresNothingAndNeverDelivers)
{
    answer("this is not JSON");
    auto handled = handle(pushFor("u", "t"));
    EXPECT_EQ(handled.calls, 0);
    EXPECT_EQ(handled.printed,
              "Notifications Content Error" "The data couldn\u2019t be read because it isn\u2019t in the correct format.\n");

    configure("http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort()));
    handled = handle(pushFor("u", "t"));
    EXPECT_EQ(handled.calls, 0);
    EXPECT_EQ(handled.printed, "Notifications Content ErrorCould not connect to the server.\n");
    EXPECT_TRUE(stored().empty());
}

TEST_F(ExtensionHandlerTest, AnUndecodablePushIsPrintedAndStillAsksWithEmptyIdentifiers)
{
    answer(R"({"data":{"text":"t","sender":"s"}})");
    const AnyValue undecodable[] = {
        AnyValue(AnyValue::Dictionary{{"aps", AnyValue::Dictionary{{"alert", "short form"}}}, {"recipientId", "u"}}),
        AnyValue(AnyValue::Dictionary{{"recipientId", 12}}),
        AnyValue(AnyValue::Dictionary{{"recipientId", "u"}, {"sent", fexo::Date(0)}}),
        AnyValue(AnyValue::Dictionary{{AnyValue(1), "integer key"}}),
    };
    for (std::size_t i = 0; i < std::size(undecodable); ++i) {
        const auto handled = handle(undecodable[i]);
        EXPECT_EQ(handled.calls, 1);
        EXPECT_EQ(std::count(handled.printed.begin(), handled.printed.end(), '\n'), 1) << handled.printed;
        EXPECT_TRUE(handled.printed.find("typeMismatch") != std::string::npos ||
                    handled.printed.find("NSCocoaErrorDomain") != std::string::npos)
            << handled.printed;
        EXPECT_EQ(requestBody(i), (nlohmann::json{{"recipientId", ""}, {"registrationId", ""}}));
    }
    // Absent identifiers are sent empty too, without any message.
    const auto handled = handle(AnyValue(AnyValue::Dictionary{{"aps", AnyValue::Dictionary{}}}));
    EXPECT_EQ(handled.printed, "");
    EXPECT_EQ(requestBody(std::size(undecodable)), (nlohmann::json{{"recipientId", ""}, {"registrationId", ""}}));
}

TEST_F(ExtensionHandlerTest, ContentThatCannotBeCopiedAsMutableIsLeftAlone)
{
    answer(R"({"data":{"text":"t","sender":"s"}})");
    const auto handled = handle(std::make_shared<FrozenContent>("t", "b", pushFor("u", "t")));
    EXPECT_EQ(handled.calls, 0);
    EXPECT_EQ(handled.printed, "");
    EXPECT_TRUE(server.requests().empty());
}

} // namespace
