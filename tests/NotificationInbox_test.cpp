// The inbox operations of FeXOService on real store files: order, cursors, counts, marking, the
// index of older stores and the plans of its queries.
#include <support/Completion.hpp>
#include <support/ForkedProcess.hpp>
#include <support/ToolSandbox.hpp>

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/NotificationInbox.hpp>
#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/StoreRecordIndex.hpp>
#include <FeXOPlatform/UserDefaults.hpp>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <set>

namespace {

using fexo::FeXOService;
using fexo::Response;

class NotificationInbox : public ::testing::Test {
protected:
    // Raw bytes under a record's key, as any writer of the store (old or new) leaves them.
    void store(const std::string& id, const std::string& json) const
    {
        ASSERT_TRUE(store()->setData(json, "response_" + id));
    }
    // The app group's store, opened in this process.
    std::shared_ptr<fexo::UserDefaults> store() const { return fexo::UserDefaults::open(sandbox.values().appGroup); }
    // Every page of `limit` from the start, joined.
    std::vector<std::string> pageThrough(std::size_t limit)
    {
        std::vector<std::string> all;
        std::string after;
        do {
            auto page = service.fetchNotifications(limit, after);
            EXPECT_TRUE(page.isSuccess());
            EXPECT_LE(page.value().records.size(), limit);
            for (const auto& record : page.value().records) all.push_back(record.id.value_or(""));
            after = page.value().next;
        } while (!after.empty());
        return all;
    }

    fexo::test::ToolSandbox sandbox{FEXO_TOOL_PATH};
    FeXOService service;
};

TEST_F(NotificationInbox, PagesNewestFirstTiesByKeyUndatedLastAtEveryPageSizeWithOnlyItsOwnCursors)
{
    store("a", R"({"id":"a","createdAt":5,"data":{"text":"t"}})");
    store("c", R"({"id":"c","createdAt":7.25,"data":{"text":"t"}})");
    store("b", R"({"id":"b","createdAt":7.25,"data":{"sender":"s"}})");
    store("d", R"({"id":"d","data":{"text":"t"}})");
    store("e", R"({"id":"e","createdAt":-1e9,"data":{"text":"t"}})");
    store("", R"({"data":{"text":"no id"}})");
    ASSERT_TRUE(store()->setObject(fexo::PropertyListValue(std::string("not data")), "response_s"));
    ASSERT_TRUE(store()->setData("{}", "responsf"));
    const std::vector<std::string> expected{"b", "c", "a", "e", "", "d"};
    for (const std::size_t limit : {1, 2, 5, 6, 1000}) EXPECT_EQ(pageThrough(limit), expected) << limit;

    const std::string next = service.fetchNotifications(2).value().next;
    auto empty = service.fetchNotifications(0, next);
    EXPECT_TRUE(empty.value().records.empty());
    EXPECT_EQ(empty.value().next, next); // limit 0 moves nothing

    std::string edited = next;
    edited[5] = edited[5] == '0' ? '1' : '0';
    for (const std::string& cursor :
         {std::string("x"), next.substr(0, next.size() - 1), edited, next + "0", std::string("c1.n..00000000")}) {
        const auto page = service.fetchNotifications(0, cursor);
        const auto* error = page.isFailure() ? page.error().as<fexo::DecodingError>() : nullptr;
        ASSERT_TRUE(error) << cursor;
        EXPECT_EQ(error->kind(), fexo::DecodingError::Kind::dataCorrupted);
    }
}

// Another process writes and deletes records around and between the pages' positions meanwhile.
TEST_F(NotificationInbox, EveryRecordPresentThroughoutIsSeenOnceInOrderWhileAnotherProcessWrites)
{
    std::vector<std::string> expected;
    auto records = store();
    records->performExclusively([&] {
        for (int i = 0; i < 10000; ++i) {
            const std::string id = "k" + std::to_string(10000 + i);
            records->setData(R"({"id":")" + id + R"(","data":{"text":"t"},"createdAt":)" + std::to_string(i / 7) + "}",
                             "response_" + id);
        }
    });
    for (int date = 9999 / 7; date >= 0; --date) { // seven to a date, by key within it
        for (int i = date * 7; i < std::min(10000, date * 7 + 7); ++i)
            expected.push_back("k" + std::to_string(10000 + i));
    }
    fexo::test::StartGate start;
    fexo::test::StartGate churning;
    fexo::test::ForkedProcess churn([&] {
        start.pass();
        FeXOService other;
        const fexo::NotificationData text("t", std::nullopt);
        other.write(Response(fexo::Date(0), text, {}, {}, "k1x"));
        churning.open();
        for (int round = 0; round < 10000000; ++round) { // dates and keys among the stable ones; killed at the end
            const Response added(fexo::Date(round % 1500), text, {}, {}, "k1" + std::to_string(round % 3000) + "x");
            other.write(added);
            if (round % 2 == 1) other.deleteNotification("k1" + std::to_string((round - 1) % 3000) + "x");
        }
        return 0;
    });
    start.open();
    churning.pass();
    std::vector<std::string> seen;
    std::size_t churned = 0;
    for (const auto& id : pageThrough(97)) {
        if (id.back() != 'x') seen.push_back(id);
        churned += id.back() == 'x';
    }
    EXPECT_EQ(seen, expected);
    EXPECT_GT(churned, 0u);
}

TEST_F(NotificationInbox, CountsAndMarksAllReadRewritingOnlyTheUnread)
{
    const std::string read = R"({ "id": "r", "isRead": true, "data": {"text": "t"} })"; // a rewrite would be compact
    store("r", read);
    store("f", R"({"id":"f","isRead":false,"createdAt":3,"data":{"text":"t"}})");
    store("n", R"({"id":"n","data":{"sender":"s"}})");
    EXPECT_EQ(service.unreadCount(), 2u);
    service.markAllNotificationsAsRead();
    EXPECT_EQ(service.unreadCount(), 0u);
    EXPECT_EQ(store()->dataForKey("response_r"), read);
    for (const char* id : {"f", "n"}) EXPECT_EQ(service.fetchNotification(id)->isRead, true) << id;
}

// The one rule of what a notification is, as the record states it and as the index states it in
// SQL: whatever is stored stays stored and fetchable, and only notifications are the inbox's.
TEST_F(NotificationInbox, ARecordThatCarriesNoNotificationStaysStoredButOutOfPagesCountsAndMarking)
{
    const std::pair<const char*, const char*> records[] = {
        {"refusal", R"({"errorCode":404,"errorMessage":"Notification not found"})"},
        {"no-data", R"({"isRead":false})"},
        {"empty-data", R"({"data":{}})"},
        {"empty-texts", R"({"data":{"text":"","sender":""}})"},
        {"text", R"({"data":{"text":"Hi"}})"},
        {"sender", R"({"data":{"sender":"Ann","text":""}})"},
        {"both", R"({"data":{"text":" ","sender":"Ann"},"errorCode":1})"},
    };
    std::set<std::string> notifications;
    for (const auto& [id, json] : records) {
        auto value = nlohmann::json::parse(json);
        value["id"] = id;
        store(id, value.dump());
        if (fexo::JSONDecoder{}.decode<Response>(value.dump()).carriesNotification()) notifications.insert(id);
    }
    store("not-json", "\x01 not JSON");
    EXPECT_EQ(notifications, (std::set<std::string>{"text", "sender", "both"}));

    const auto listed = pageThrough(2);
    EXPECT_EQ(std::set<std::string>(listed.begin(), listed.end()), notifications);
    EXPECT_EQ(service.unreadCount(), 3u);
    fexo::test::Completion<fexo::NotificationCounts> counted;
    auto observation = service.observeNotifications(counted.handler());
    store("later", R"({"id":"later","errorCode":500})");
    EXPECT_EQ(counted.wait(), (fexo::NotificationCounts{3, 3}));
    service.markAllNotificationsAsRead();
    EXPECT_EQ(service.unreadCount(), 0u);
    EXPECT_EQ(service.fetchNotification("refusal")->isRead, std::nullopt); // not marked: not the inbox's
    EXPECT_EQ(service.fetchNotification("no-data")->isRead, false);
    EXPECT_EQ(store()->dataWithKeyPrefix("response_").size(), 9u); // all still stored
}

// Each query of the index names it and reads it in order: no sort, no scan of the key range. The
// counts and the unread records come from the index alone, never a row fetched per entry.
TEST_F(NotificationInbox, EveryQueryReadsItsIndexWithoutASort)
{
    EXPECT_EQ(service.unreadCount(), 0u); // the first open made the index
    const auto& queries = fexo::NotificationInbox::recordIndex().queries();
    for (const auto* sql : {&queries.firstPage, &queries.sameOrderAfter, &queries.orderBelow, &queries.unorderedAfter,
                            &queries.total, &queries.unflagged, &queries.unflaggedRows, &queries.counts}) {
        const auto plan = fexo::StoreRecordIndex::queryPlan(*store(), *sql);
        EXPECT_NE(plan.find("INDEX fexo_records_"), std::string::npos) << plan;
        EXPECT_EQ(plan.find("TEMP B-TREE"), std::string::npos) << plan;
        if (sql != &queries.total && sql != &queries.unflagged && sql != &queries.unflaggedRows &&
            sql != &queries.counts)
            continue;
        EXPECT_EQ(plan.find("USING INDEX"), std::string::npos) << plan; // as against USING COVERING INDEX
    }
}

// An older store, filled without the order index and with an earlier form of the unread one,
// opened by two processes at the same moment.
TEST_F(NotificationInbox, AnOlderStoreGetsItsIndexOnceAndStillTakesAnyBytes)
{
    auto old = store();
    sqlite3* raw = nullptr;
    ASSERT_EQ(sqlite3_open(old->databasePath().c_str(), &raw), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(raw,
                           "CREATE INDEX fexo_records_unflagged ON defaults (key) WHERE key >= 'response_' AND "
                           "key < 'response`' AND json_extract(value, '$.isRead') IS NOT 1",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(raw);
    old->performExclusively([&] {
        for (int i = 0; i < 20000; ++i) {
            const std::string id = std::to_string(i);
            old->setData(R"({"id":")" + id + R"(","data":{"text":"t"},"createdAt":)" + std::to_string(i % 100) +
                             (i % 3 == 0 ? R"(,"isRead":true})" : "}"),
                         "response_" + id);
        }
    });
    fexo::test::StartGate gate;
    std::vector<std::unique_ptr<fexo::test::ForkedProcess>> openers;
    for (int i = 0; i < 2; ++i) {
        openers.push_back(std::make_unique<fexo::test::ForkedProcess>([&gate] {
            gate.pass();
            return FeXOService().unreadCount() == 13333 ? 0 : 1;
        }));
    }
    gate.open();
    for (auto& opener : openers) EXPECT_EQ(opener->wait(std::chrono::seconds(60)), 0);

    const auto first = service.fetchNotifications(2).value().records;
    EXPECT_EQ(first.at(0).id.value() + " " + first.at(1).id.value(), "10099 10199"); // by key, as text
    EXPECT_TRUE(old->setData(std::string("\xff\0not json", 10), "response_zz"));
    EXPECT_EQ(service.unreadCount(), 13333u); // stored, but no notification
    const auto& unread = fexo::NotificationInbox::recordIndex().queries().unflagged;
    EXPECT_NE(fexo::StoreRecordIndex::queryPlan(*old, unread).find("COVERING INDEX"), std::string::npos);
}

} // namespace
