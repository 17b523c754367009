// The record store against what it is built on: bare SQLite with prepared statements (plus
// simdjson for reading records back), and the whole-file property-list way of keeping
// defaults. Every store here is a real SQLite file in a temporary directory.

#include "BenchSupport.hpp"

#include <FeXONotificationService/DataRepository.hpp>
#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/PropertyList.hpp>
#include <FeXOPlatform/StandardOutput.hpp>
#include <FeXOPlatform/UUID.hpp>
#include <FeXOPlatform/UserDefaults.hpp>

#include <simdjson.h>
#include <sqlite3.h>

#include <fcntl.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <random>
#include <stdexcept>

namespace fexo::bench {
namespace {

constexpr double createdAt = 721692800.25;
constexpr std::size_t writeKeys = 512; // writes cycle over these, so a store grows by at most this

const std::string keyPrefix = "response_";
const std::string keyUpperBound = "response`"; // '_' + 1

void check(bool ok, const char* what)
{
    if (!ok) throw std::runtime_error(what);
}

// A store of `count` records in a directory of its own, reached through the library, and a
// second, bare SQLite connection on the same file for the baselines.
struct Store {
    TemporaryDirectory directory;
    std::shared_ptr<UserDefaultsDataStorage> storage = std::make_shared<UserDefaultsDataStorage>();
    DataRepository repository{storage};
    std::vector<std::string> ids;
    sqlite3* bare = nullptr;
    std::map<std::string, sqlite3_stmt*> statements;

    explicit Store(std::size_t count)
    {
        ::setenv("FEXO_APP_GROUPS_DIR", directory.path().c_str(), 1);
        UserDefaults& defaults = storage->userDefaults(); // opens the store under this directory
        ids.reserve(count);
        for (std::size_t i = 0; i < count; ++i) ids.push_back(UUID().uuidString());
        const bool filled = defaults.performExclusively([&] {
            for (const auto& id : ids) defaults.setData(recordJSON(id, createdAt), keyPrefix + id);
        });
        check(filled, "cannot fill the store");
        check(sqlite3_open_v2(defaults.databasePath().c_str(), &bare, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK,
              "cannot open the store's file");
        sqlite3_busy_timeout(bare, 5000);
        // Durability is a setting of each connection: the baseline commits as the store does.
        check(sqlite3_exec(bare, "PRAGMA synchronous = FULL", nullptr, nullptr, nullptr) == SQLITE_OK, "pragma");
    }

    ~Store()
    {
        for (auto& [text, statement] : statements) sqlite3_finalize(statement);
        sqlite3_close_v2(bare);
    }

    sqlite3_stmt* statement(const std::string& text)
    {
        auto& slot = statements[text];
        if (slot == nullptr) {
            check(sqlite3_prepare_v3(bare, text.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &slot, nullptr) == SQLITE_OK,
                  "prepare");
        }
        sqlite3_reset(slot);
        return slot;
    }
};

Store& store(const std::string& use, std::size_t count)
{
    static std::map<std::pair<std::string, std::size_t>, std::unique_ptr<Store>> stores;
    auto& slot = stores[{use, count}];
    if (!slot) slot = std::make_unique<Store>(count);
    return *slot;
}

Response templateRecord()
{
    return JSONDecoder{}.decode<Response>(recordJSON("template", createdAt));
}

// What the baseline reads a record into: the same fields, materialised.
struct BareRecord {
    std::optional<double> createdAt;
    std::optional<std::string> text;
    std::optional<std::string> sender;
    std::optional<std::int64_t> errorCode;
    std::optional<std::string> errorMessage;
    std::optional<std::string> id;
    std::optional<bool> isRead;
};

BareRecord parseBare(simdjson::dom::parser& parser, const char* bytes, std::size_t size)
{
    BareRecord record;
    simdjson::dom::object object;
    if (parser.parse(bytes, size).get(object) != simdjson::SUCCESS) throw std::runtime_error("bad record");
    for (auto field : object) {
        const std::string_view key = field.key;
        if (key == "createdAt")
            record.createdAt = double(field.value);
        else if (key == "errorCode")
            record.errorCode = int64_t(field.value);
        else if (key == "errorMessage")
            record.errorMessage = std::string(std::string_view(field.value));
        else if (key == "id")
            record.id = std::string(std::string_view(field.value));
        else if (key == "isRead")
            record.isRead = bool(field.value);
        else if (key == "data") {
            for (auto inner : simdjson::dom::object(field.value)) {
                if (inner.key == "text")
                    record.text = std::string(std::string_view(inner.value));
                else if (inner.key == "sender")
                    record.sender = std::string(std::string_view(inner.value));
            }
        }
    }
    return record;
}

std::string_view column(sqlite3_stmt* statement, int index)
{
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, index));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, index))};
}

void bindText(sqlite3_stmt* statement, int index, std::string_view text)
{
    sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

void bareUpsert(Store& s, const std::string& key, const std::string& value)
{
    auto* upsert = s.statement("INSERT INTO defaults (key, kind, value) VALUES (?1, 5, ?2) "
                               "ON CONFLICT (key) DO UPDATE SET kind = excluded.kind, value = excluded.value");
    bindText(upsert, 1, key);
    sqlite3_bind_blob64(upsert, 2, value.data(), value.size(), SQLITE_STATIC);
    check(sqlite3_step(upsert) == SQLITE_DONE, "upsert");
}

// ---- writes ----

void projectWrite(benchmark::State& state, std::size_t count)
{
    Store& s = store("write", count);
    Response record = templateRecord();
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < writeKeys; ++i) keys.push_back(UUID().uuidString());
    std::size_t i = 0;
    for (auto _ : state) {
        record.id = keys[i++ % writeKeys];
        s.repository.write(record);
    }
}

// The same upsert on a bare connection, at the store's durability and at synchronous=NORMAL.
void bareWrite(benchmark::State& state, std::size_t count, const char* synchronous)
{
    Store& s = store("write", count);
    check(sqlite3_exec(s.bare, (std::string("PRAGMA synchronous = ") + synchronous).c_str(), nullptr, nullptr,
                       nullptr) == SQLITE_OK,
          "pragma");
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < writeKeys; ++i) keys.push_back(keyPrefix + UUID().uuidString());
    const std::string value = recordJSON("bare", createdAt);
    std::size_t i = 0;
    for (auto _ : state) bareUpsert(s, keys[i++ % writeKeys], value);
    sqlite3_exec(s.bare, "PRAGMA synchronous = FULL", nullptr, nullptr, nullptr);
}

// The platform's own way: the suite is one property-list file, read into memory once and
// rewritten whole (to a new file, synced, then renamed over the old) after every change.
void plistWrite(benchmark::State& state, std::size_t count)
{
    TemporaryDirectory directory;
    PropertyListValue::Dictionary suite;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string id = UUID().uuidString();
        suite.emplace(keyPrefix + id, PropertyListValue::Data{recordJSON(id, createdAt)});
    }
    const auto path = directory.path() / "group.bench.fexo.plist";
    const auto draft = directory.path() / "group.bench.fexo.plist.new";
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < writeKeys; ++i) keys.push_back(UUID().uuidString());
    std::size_t i = 0;
    PropertyListValue root(std::move(suite));
    for (auto _ : state) {
        const std::string& id = keys[i++ % writeKeys];
        auto& dictionary = const_cast<PropertyListValue::Dictionary&>(*root.dictionary());
        dictionary.insert_or_assign(keyPrefix + id, PropertyListValue::Data{recordJSON(id, createdAt)});
        const std::string bytes = PropertyList::serialize(root, PropertyList::Format::binary);
        const int fd = ::open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        check(fd >= 0 && ::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "write");
        ::fsync(fd);
        ::close(fd);
        check(::rename(draft.c_str(), path.c_str()) == 0, "rename");
    }
}

// ---- reads ----

void projectFetchAll(benchmark::State& state, std::size_t count)
{
    Store& s = store("read", count);
    for (auto _ : state) {
        auto records = s.repository.fetchAllNotifications();
        if (records.size() != count) state.SkipWithError("wrong record count");
        benchmark::DoNotOptimize(records);
    }
}

// The store's read path with every record through the full (nlohmann) decoder only, as it was
// before records had a quick reader: shows what that reader buys.
void fullDecoderFetchAll(benchmark::State& state, std::size_t count)
{
    Store& s = store("read", count);
    for (auto _ : state) {
        std::vector<Response> records;
        for (const auto& [key, bytes] : s.storage->userDefaults().dataWithKeyPrefix(keyPrefix)) {
            Response record;
            coding::decodeValue(JSONDecoder::parse(bytes), record);
            records.push_back(std::move(record));
        }
        if (records.size() != count) state.SkipWithError("wrong record count");
        benchmark::DoNotOptimize(records);
    }
}

void bareFetchAll(benchmark::State& state, std::size_t count)
{
    Store& s = store("read", count);
    simdjson::dom::parser parser;
    for (auto _ : state) {
        std::vector<BareRecord> records;
        auto* scan =
            s.statement("SELECT key, value FROM defaults WHERE key >= ?1 AND key < ?2 AND kind = 5 ORDER BY key");
        bindText(scan, 1, keyPrefix);
        bindText(scan, 2, keyUpperBound);
        while (sqlite3_step(scan) == SQLITE_ROW) {
            const auto value = column(scan, 1);
            records.push_back(parseBare(parser, value.data(), value.size()));
        }
        if (records.size() != count) state.SkipWithError("wrong record count");
        benchmark::DoNotOptimize(records);
    }
}

void projectFetchOne(benchmark::State& state, std::size_t count)
{
    Store& s = store("read", count);
    std::mt19937 random(7);
    for (auto _ : state) {
        auto record = s.repository.fetchNotification(s.ids[random() % count]);
        if (!record) state.SkipWithError("record missing");
        benchmark::DoNotOptimize(record);
    }
}

// One prepared point read on the bare connection; false when the row is missing.
bool bareRead(Store& s, const std::string& key, std::string& value)
{
    auto* select = s.statement("SELECT kind, value FROM defaults WHERE key = ?1");
    bindText(select, 1, key);
    const bool found = sqlite3_step(select) == SQLITE_ROW;
    if (found) value.assign(column(select, 1));
    // Reset at once: a statement left on a row keeps its read snapshot open, and an open
    // reader keeps every other connection's checkpoint from finishing.
    sqlite3_reset(select);
    return found;
}

void bareFetchOne(benchmark::State& state, std::size_t count)
{
    Store& s = store("read", count);
    std::mt19937 random(7);
    std::string value;
    for (auto _ : state) {
        if (!bareRead(s, keyPrefix + s.ids[random() % count], value)) state.SkipWithError("record missing");
        benchmark::DoNotOptimize(value);
    }
}

void projectMarkAsRead(benchmark::State& state, std::size_t count)
{
    Store& s = store("read", count);
    static std::mt19937 random(11);
    static std::map<std::size_t, std::vector<bool>> markedBySize;
    auto& marked = markedBySize[count];
    marked.resize(count);
    for (auto _ : state) {
        const std::size_t index = random() % count;
        if (marked[index]) {
            // Marking a read record again rewrites the same bytes, which SQLite commits without a
            // flush; put it back unread, untimed, so that every timed mark is a real change.
            state.PauseTiming();
            bareUpsert(s, keyPrefix + s.ids[index], recordJSON(s.ids[index], createdAt));
            state.ResumeTiming();
        }
        s.repository.markNotificationAsRead(s.ids[index]);
        marked[index] = true;
    }
}

void bareMarkAsRead(benchmark::State& state, std::size_t count)
{
    Store& s = store("read", count);
    std::mt19937 random(11);
    for (auto _ : state) {
        const std::string key = keyPrefix + s.ids[random() % count];
        std::string value;
        if (!bareRead(s, key, value)) state.SkipWithError("record missing");
        // SQLite leaves a page clean when a row is overwritten with the same bytes, and a commit
        // without dirty pages does not flush. A trailing blank added or taken away (still the same
        // JSON) makes every write a real change, as the store's first mark of a record is.
        if (!value.empty() && value.back() == ' ')
            value.pop_back();
        else
            value.push_back(' ');
        bareUpsert(s, key, value);
        sqlite3_reset(s.statement("INSERT INTO defaults (key, kind, value) VALUES (?1, 5, ?2) "
                                  "ON CONFLICT (key) DO UPDATE SET kind = excluded.kind, value = excluded.value"));
    }
}

template <class F>
void add(const std::string& name, F function, std::size_t count, std::int64_t iterations = 0)
{
    auto* benchmark = benchmark::RegisterBenchmark(
        name.c_str(), [function, count](benchmark::State& state) { function(state, count); });
    benchmark->Unit(benchmark::kMicrosecond)->UseRealTime();
    if (iterations > 0) benchmark->Iterations(iterations);
}

} // namespace
} // namespace fexo::bench

int main(int argc, char** argv)
{
    using namespace fexo::bench;
    TemporaryDirectory resources;
    installConfiguration(resources.path(), resources.path() / "unused", "http://127.0.0.1:9");
    // "Item Not Found!" is never expected; keep the console for the figures.

    const std::vector<std::size_t> sizes = {1000, 10000, 100000};
    for (auto n : sizes) add("write/project/" + std::to_string(n), projectWrite, n);
    add(
        "write/bare-full/10000", [](benchmark::State& s, std::size_t n) { bareWrite(s, n, "FULL"); }, 10000);
    add(
        "write/bare-normal/10000", [](benchmark::State& s, std::size_t n) { bareWrite(s, n, "NORMAL"); }, 10000);
    add("write/plist/10000", plistWrite, 10000, 20);
    for (auto n : sizes) {
        const std::int64_t iterations = n >= 100000 ? 3 : 0;
        add("fetchAll/project/" + std::to_string(n), projectFetchAll, n, iterations);
        add("fetchAll/baseline/" + std::to_string(n), bareFetchAll, n, iterations);
        add("fetchAll/full-decoder/" + std::to_string(n), fullDecoderFetchAll, n, iterations);
    }
    for (std::size_t n : {10000, 100000}) {
        add("fetchNotification/project/" + std::to_string(n), projectFetchOne, n);
        add("fetchNotification/baseline/" + std::to_string(n), bareFetchOne, n);
        add("markNotificationAsRead/project/" + std::to_string(n), projectMarkAsRead, n);
        add("markNotificationAsRead/baseline/" + std::to_string(n), bareMarkAsRead, n);
    }

    std::vector<Figure> figures = {
        {"store write at 10k records vs 1k", "write/project/10000", "write/project/1000", "", 1.5},
        {"store write at 100k records vs 1k", "write/project/100000", "write/project/1000", "", 1.5},
        {"store write at 10k: project vs bare upsert (synchronous=FULL)", "write/project/10000",
         "write/bare-full/10000", "", 0},
        {"bare upsert at 10k: synchronous=NORMAL vs FULL", "write/bare-normal/10000", "write/bare-full/10000", "", 0},
        {"store write at 10k vs whole property-list file rewritten", "write/project/10000", "write/plist/10000", "", 0,
         true},
    };
    for (auto n : sizes) {
        figures.push_back({"fetchAllNotifications at " + std::to_string(n), "fetchAll/project/" + std::to_string(n),
                           "fetchAll/baseline/" + std::to_string(n), "", 2.0});
        figures.push_back({"fetchAll at " + std::to_string(n) + ", full decoder only (before the quick reader)",
                           "fetchAll/full-decoder/" + std::to_string(n), "fetchAll/baseline/" + std::to_string(n), "",
                           0});
    }
    for (std::size_t n : {10000, 100000}) {
        figures.push_back({"fetchNotification at " + std::to_string(n),
                           "fetchNotification/project/" + std::to_string(n),
                           "fetchNotification/baseline/" + std::to_string(n), "", 1.5});
        figures.push_back({"markNotificationAsRead at " + std::to_string(n),
                           "markNotificationAsRead/project/" + std::to_string(n),
                           "markNotificationAsRead/baseline/" + std::to_string(n), "", 1.5});
    }
    return runAndReport(argc, argv, figures);
}
