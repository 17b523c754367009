#include <FeXOPlatform/StoreKeySalvage.hpp>

#include <FeXOPlatform/PreparedStatement.hpp>
#include <FeXOPlatform/ReadTracingFileSystem.hpp>

#include <sqlite3.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <optional>

namespace fexo {

namespace {

std::string bytesAt(sqlite3_stmt* statement, int column)
{
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
    return bytes == nullptr ? std::string()
                            : std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
}

// The page a failing read stopped at; nothing when unknown, and then it equals no other.
using Stop = std::optional<ReadTracingFileSystem::Read>;

bool samePage(const Stop& one, const Stop& other)
{
    return one && other && *one == *other;
}

// The texts strictly between `low` and `high` (nothing: past every text), not yet known. A read
// just above `low` failed at `lowStop`, one just below `high` at `highStop`. Texts compare as
// the BINARY collation compares them, bytes as unsigned and then length, which is also how
// std::string compares.
struct Range {
    std::string low;
    Stop lowStop;
    std::optional<std::string> high;
    Stop highStop;

    std::size_t bytes() const { return sizeof(Range) + low.size() + (high ? high->size() : 0); }
};

unsigned digitAt(const std::string& text, std::size_t index)
{
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0u;
}

// A text strictly between `low` and `high`, near the middle of the range when texts are read as
// base-256 fractions (a missing `high` counts as 1): the shortest prefix of the exact middle that
// still lies above `low`. The arithmetic runs over a window of digits after the bounds' common
// prefix, widened while it is too narrow to tell the bounds apart (`low` ending in 0xFF bytes just
// below `high`), up to `maxLength` in all. Nothing when no text lies between, or when telling the
// bounds apart takes more than `maxLength` bytes.
std::optional<std::string> midpoint(const std::string& low, const std::optional<std::string>& high,
                                    std::size_t maxLength)
{
    // Nothing sorts between a text and the same text followed by a zero byte.
    if (high && high->size() == low.size() + 1 && high->back() == '\0' && high->starts_with(low)) return std::nullopt;
    const std::size_t common =
        high ? static_cast<std::size_t>(std::mismatch(low.begin(), low.end(), high->begin(), high->end()).first -
                                        low.begin())
             : 0;
    if (common + 1 >= maxLength) return std::nullopt;
    for (std::size_t width = 8;; width *= 2) {
        const std::size_t digits = std::min(width, maxLength - common - 1);
        std::string sum(digits, '\0');
        unsigned carry = 0;
        for (std::size_t i = digits; i-- > 0;) {
            const unsigned total = digitAt(low, common + i) + (high ? digitAt(*high, common + i) : 0u) + carry;
            sum[i] = static_cast<char>(total & 0xFF);
            carry = total >> 8;
        }
        // The sum's whole part, 0 or 1, is the first remainder of the halving.
        unsigned remainder = carry + (high ? 0u : 1u);
        std::string middle = low.substr(0, common);
        for (std::size_t i = 0; i < digits; ++i) {
            const unsigned value = remainder * 256 + static_cast<unsigned char>(sum[i]);
            middle += static_cast<char>(value / 2);
            remainder = value % 2;
        }
        if (remainder != 0) middle += '\x80';
        if (middle > low && (!high || middle < *high)) {
            const auto differ = std::mismatch(middle.begin(), middle.end(), low.begin(), low.end()).first;
            return middle.substr(0, static_cast<std::size_t>(differ - middle.begin()) + 1);
        }
        if (digits < width) return std::nullopt;
    }
}

class Search {
public:
    Search(sqlite3* database, const std::function<bool(const StoreKeySalvage::Key&)>& found,
           const StoreKeySalvage::Limits& limits)
        : database_(database),
          forward_(prepareStatement(database, "SELECT key FROM defaults NOT INDEXED WHERE key >= ?1 ORDER BY key")),
          backward_(
              prepareStatement(database, "SELECT key FROM defaults NOT INDEXED WHERE key < ?1 ORDER BY key DESC")),
          fromEnd_(prepareStatement(database, "SELECT key FROM defaults NOT INDEXED ORDER BY key DESC")), found_(found),
          limits_(limits)
    {
    }

    StoreKeySalvage::Outcome run()
    {
        if (!forward_ || !backward_ || !fromEnd_) {
            outcome_.damaged = true; // the schema cannot be read
            return outcome_;
        }
        ++outcome_.probes;
        const Scan first = readForward(std::string(), std::nullopt);
        if (first.stop) {
            // When the first seek failed, the empty text lies in the failed stretch too.
            Range rest{first.last.value_or(std::string()), *first.stop, std::nullopt, std::nullopt};
            ++outcome_.probes;
            const Scan last = readBackward(fromEnd_.get(), nullptr, rest.low);
            if (last.stop) {
                rest.high = last.last;
                rest.highStop = *last.stop;
                enqueue(std::move(rest));
            }
        }
        while (!pending_.empty() && !stopped_ && outcome_.probes < limits_.probes) {
            Range range = std::move(pending_.front());
            pending_.pop_front();
            pendingBytes_ -= range.bytes();
            probe(std::move(range));
        }
        return outcome_;
    }

private:
    // How a read ended: `stop` is set when it failed among the texts, at that page; `last` is the
    // last text key it read, and `before` the one before that.
    struct Scan {
        bool seekFailed = false;
        std::optional<Stop> stop;
        std::optional<std::string> last;
        std::optional<std::string> before;

        void read(std::string key)
        {
            before = std::move(last);
            last = std::move(key);
        }
        // Keys out of order: the tree contradicts itself, and either the last key or the one
        // that contradicts it is not what was stored (the tail of a key on a zeroed overflow page
        // reads as zeros). The read counts as failed at a page that cannot be named, after the
        // key before the last.
        void contradicted()
        {
            last = std::move(before);
            stop = Stop{};
        }
    };

    void enqueue(Range range)
    {
        if (samePage(range.lowStop, range.highStop)) return; // one damaged page spans it
        if (pendingBytes_ + range.bytes() > limits_.pendingBytes) return;
        pendingBytes_ += range.bytes();
        pending_.push_back(std::move(range));
    }

    void emit(sqlite3_stmt* statement)
    {
        StoreKeySalvage::Key key{sqlite3_column_type(statement, 0), bytesAt(statement, 0)};
        if (key.type == SQLITE_TEXT) longestKey_ = std::max(longestKey_, key.bytes.size());
        if (!found_(key)) stopped_ = true;
    }

    // One step of `statement`, with `point` bound afresh first when given. Every page no statement
    // holds leaves the cache first, so that a page that fails is read, and traced, last.
    int step(sqlite3_stmt* statement, const std::string* point, Stop& stop)
    {
        if (point != nullptr) {
            sqlite3_reset(statement);
            sqlite3_bind_text64(statement, 1, point->data(), point->size(), SQLITE_STATIC, SQLITE_UTF8);
        }
        sqlite3_db_release_memory(database_);
        ReadTracingFileSystem::forget();
        const int result = sqlite3_step(statement);
        stop = ReadTracingFileSystem::lastRead();
        if (result != SQLITE_ROW && result != SQLITE_DONE) outcome_.damaged = true;
        return result;
    }

    // Reads the keys from `point` up to `high`. Without `high` the read goes on past the texts
    // to the end of the table, where the BLOB keys of a file this library did not write sort.
    Scan readForward(const std::string& point, const std::optional<std::string>& high)
    {
        Scan scan;
        Stop stop;
        int result = step(forward_.get(), &point, stop);
        scan.seekFailed = result != SQLITE_ROW && result != SQLITE_DONE;
        bool pastTexts = false;
        for (; result == SQLITE_ROW && !stopped_; result = step(forward_.get(), nullptr, stop)) {
            const int type = sqlite3_column_type(forward_.get(), 0);
            if (type == SQLITE_BLOB && !high) {
                pastTexts = true;
                emit(forward_.get());
                continue;
            }
            if (type == SQLITE_BLOB) return scan;
            std::string key = bytesAt(forward_.get(), 0);
            if (type == SQLITE_TEXT && high && key >= *high) return scan;
            // Out of order, or a number (it would sort before every text): the tree contradicts itself.
            if (type != SQLITE_TEXT || pastTexts || key < point || (scan.last && key <= *scan.last)) {
                outcome_.damaged = true;
                if (!pastTexts) scan.contradicted();
                return scan;
            }
            emit(forward_.get());
            scan.read(std::move(key));
        }
        if (result != SQLITE_DONE && !stopped_ && !pastTexts) scan.stop = stop;
        return scan;
    }

    // Reads the keys below `point` down to `low`. Without `point` the read starts at the end of
    // the table, past the texts.
    Scan readBackward(sqlite3_stmt* statement, const std::string* point, const std::string& low)
    {
        Scan scan;
        Stop stop;
        int result = step(statement, point, stop);
        scan.seekFailed = result != SQLITE_ROW && result != SQLITE_DONE;
        for (; result == SQLITE_ROW && !stopped_; result = step(statement, nullptr, stop)) {
            const int type = sqlite3_column_type(statement, 0);
            if (type == SQLITE_BLOB && point == nullptr && !scan.last) {
                emit(statement);
                continue;
            }
            std::string key = bytesAt(statement, 0);
            if (type == SQLITE_TEXT && key <= low) return scan;
            if (type != SQLITE_TEXT || (point != nullptr && key >= *point) || (scan.last && key >= *scan.last)) {
                outcome_.damaged = true;
                scan.contradicted();
                return scan;
            }
            emit(statement);
            scan.read(std::move(key));
        }
        if (result != SQLITE_DONE && !stopped_) scan.stop = stop;
        return scan;
    }

    void probe(Range range)
    {
        const std::size_t longest = std::clamp(longestKey_ + 64, limits_.shortestLimit, limits_.pointLength);
        auto point = midpoint(range.low, range.high, longest);
        if (!point) return; // nothing lies between, or too long to probe: left unread
        ++outcome_.probes;

        const Scan forward = readForward(*point, range.high);
        if (forward.seekFailed) {
            const Stop& stop = *forward.stop;
            if (samePage(stop, range.lowStop)) {
                enqueue({std::move(*point), stop, std::move(range.high), std::move(range.highStop)});
            } else if (samePage(stop, range.highStop)) {
                enqueue({std::move(range.low), std::move(range.lowStop), std::move(*point), stop});
            } else {
                enqueue({range.low, range.lowStop, *point, stop});
                enqueue({*point, stop, std::move(range.high), std::move(range.highStop)});
            }
            return;
        }
        if (forward.stop) enqueue({forward.last.value_or(*point), *forward.stop, range.high, range.highStop});
        const Scan backward = readBackward(backward_.get(), &*point, range.low);
        if (backward.stop) {
            enqueue({std::move(range.low), std::move(range.lowStop), backward.last.value_or(*point), *backward.stop});
        }
    }

    sqlite3* database_;
    PreparedStatement forward_;
    PreparedStatement backward_;
    PreparedStatement fromEnd_;
    const std::function<bool(const StoreKeySalvage::Key&)>& found_;
    StoreKeySalvage::Limits limits_;
    StoreKeySalvage::Outcome outcome_;
    std::deque<Range> pending_;
    std::size_t pendingBytes_ = 0;
    std::size_t longestKey_ = 0;
    bool stopped_ = false;
};

} // namespace

StoreKeySalvage::Outcome StoreKeySalvage::forEachKey(sqlite3* database, const std::function<bool(const Key&)>& found,
                                                     Limits limits)
{
    return Search(database, found, limits).run();
}

} // namespace fexo
