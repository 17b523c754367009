#include <FeXONotificationService/Response.hpp>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <system_error>

namespace fexo {

namespace {

// A strict single-pass reader of the record's one JSON form. Every function here returns false
// to decline: either the text is not valid JSON, or it is valid but not something this reader
// settles with certainty (an unknown key, a \u escape, a value of the wrong type, a number at
// the edge of its range, ...). Only the full decoder decides failures. What is accepted must be
// exactly what from_json yields through the full decoder, so the grammar checks below are as
// strict as the full decoder's: nothing passes here that it would refuse.
class Scanner {
public:
    explicit Scanner(std::string_view text)
        : p_(text.data()), end_(text.data() + text.size())
    {
    }

    void skipWhitespace()
    {
        while (p_ != end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')) ++p_;
    }

    bool consume(char c)
    {
        if (p_ == end_ || *p_ != c) return false;
        ++p_;
        return true;
    }

    bool atEnd() const { return p_ == end_; }
    bool next(char c) const { return p_ != end_ && *p_ == c; }

    enum class Key { createdAt, data, errorCode, errorMessage, id, isRead, text, sender, unknown };

    // A key after its opening quote, up to and past its closing quote. Only the record's own
    // keys are recognised, matched with their closing quote; as they are plain ASCII, a key
    // spelled with an escape or holding anything else is unknown and declined unread.
    Key readKey()
    {
        if (p_ == end_) return Key::unknown;
        switch (*p_) {
        case 'c': return match("createdAt\"", Key::createdAt);
        case 'd': return match("data\"", Key::data);
        case 'e': {
            const Key key = match("errorCode\"", Key::errorCode);
            return key != Key::unknown ? key : match("errorMessage\"", Key::errorMessage);
        }
        case 'i': {
            const Key key = match("id\"", Key::id);
            return key != Key::unknown ? key : match("isRead\"", Key::isRead);
        }
        case 't': return match("text\"", Key::text);
        case 's': return match("sender\"", Key::sender);
        default: return Key::unknown;
        }
    }

    // "null" sets `out` empty; a string sets it; anything else declines.
    bool readString(std::optional<std::string>& out)
    {
        if (readNull()) {
            out.reset();
            return true;
        }
        if (!consume('"')) return false;
        if (!out) out.emplace();
        return readStringBody(*out);
    }

    bool readBool(std::optional<bool>& out)
    {
        if (readNull()) out.reset();
        else if (readLiteral("true")) out = true;
        else if (readLiteral("false")) out = false;
        else return false;
        return true;
    }

    // Any JSON number, read as the full decoder reads it into a double: the correctly rounded
    // value of the decimal text, whether it was written as an integer or not. A negative zero is
    // declined: "-0" reads as the integer 0 there, "-0.0" as the double -0.0.
    bool readDate(std::optional<Date>& out)
    {
        if (readNull()) {
            out.reset();
            return true;
        }
        Number number;
        double seconds = 0;
        if (!readNumber(number) || !toDouble(number, seconds)) return false;
        if (seconds == 0 && number.negative) return false;
        out = Date(seconds);
        return true;
    }

    // An integer written as one must fit exactly; a number with a fraction or an exponent goes
    // through a double first and must hold a whole value below 2^63 in magnitude, as in the full
    // decoder (so "1.0" and "1e3" are integers there too).
    bool readInt64(std::optional<std::int64_t>& out)
    {
        if (readNull()) {
            out.reset();
            return true;
        }
        Number number;
        if (!readNumber(number)) return false;
        if (number.integral) {
            std::int64_t integer = 0;
            const auto [ptr, ec] = std::from_chars(number.begin, number.end, integer);
            if (ec != std::errc{} || ptr != number.end) return false;
            out = integer;
            return true;
        }
        double real = 0;
        if (!toDouble(number, real)) return false;
        if (std::trunc(real) != real || real < -9223372036854775808.0 || real >= 9223372036854775808.0) return false;
        out = static_cast<std::int64_t>(real);
        return true;
    }

    // The "data" object: a new NotificationData each time, so that of repeated "data" keys the
    // last one alone counts, as do the last of repeated "text" and "sender" keys inside it.
    bool readData(std::optional<NotificationData>& out)
    {
        if (readNull()) {
            out.reset();
            return true;
        }
        if (!consume('{')) return false;
        NotificationData data;
        skipWhitespace();
        if (!consume('}')) {
            while (true) {
                if (!consume('"')) return false;
                const Key key = readKey();
                skipWhitespace();
                if (!consume(':')) return false;
                skipWhitespace();
                if (key == Key::text) {
                    if (!readString(data.text)) return false;
                } else if (key == Key::sender) {
                    if (!readString(data.sender)) return false;
                } else {
                    return false;
                }
                skipWhitespace();
                if (consume('}')) break;
                if (!consume(',')) return false;
                skipWhitespace();
            }
        }
        out = std::move(data);
        return true;
    }

private:
    struct Number {
        const char* begin = nullptr;
        const char* end = nullptr;
        bool negative = false;
        bool integral = true; // no fraction and no exponent
    };

    static bool isDigit(char c) { return c >= '0' && c <= '9'; }

    void skipDigits()
    {
        while (p_ != end_ && isDigit(*p_)) ++p_;
    }

    // -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)? and nothing else: no "+1", ".5", "1.",
    // "01" (the 1 after the 0 is left for the caller, which finds no separator there).
    bool readNumber(Number& number)
    {
        number.begin = p_;
        number.negative = consume('-');
        if (p_ == end_) return false;
        if (*p_ == '0') {
            ++p_;
        } else if (isDigit(*p_)) {
            skipDigits();
        } else {
            return false;
        }
        if (consume('.')) {
            number.integral = false;
            if (p_ == end_ || !isDigit(*p_)) return false;
            skipDigits();
        }
        if (consume('e') || consume('E')) {
            number.integral = false;
            if (!consume('+')) consume('-');
            if (p_ == end_ || !isDigit(*p_)) return false;
            skipDigits();
        }
        number.end = p_;
        return true;
    }

    // Correctly rounded; overflow, and underflow below the smallest subnormal, are declined.
    static bool toDouble(const Number& number, double& out)
    {
        const auto [ptr, ec] = std::from_chars(number.begin, number.end, out);
        return ec == std::errc{} && ptr == number.end && std::isfinite(out);
    }

    bool readLiteral(std::string_view literal)
    {
        if (static_cast<std::size_t>(end_ - p_) < literal.size() ||
            std::memcmp(p_, literal.data(), literal.size()) != 0) {
            return false;
        }
        p_ += literal.size();
        return true;
    }

    bool readNull() { return next('n') && readLiteral("null"); }

    Key match(std::string_view quotedName, Key key)
    {
        return readLiteral(quotedName) ? key : Key::unknown;
    }

    // The length of the well-formed UTF-8 sequence of two to four bytes at `p`, 0 for anything
    // else: overlong forms, surrogates, code points above U+10FFFF and cut-off sequences.
    static std::size_t utf8SequenceLength(const unsigned char* p, const unsigned char* end)
    {
        const auto left = static_cast<std::size_t>(end - p);
        const auto continuation = [](unsigned char b) { return b >= 0x80 && b <= 0xBF; };
        const unsigned char lead = p[0];
        if (lead >= 0xC2 && lead <= 0xDF) return left >= 2 && continuation(p[1]) ? 2 : 0;
        if (lead >= 0xE0 && lead <= 0xEF) {
            if (left < 3) return 0;
            const unsigned char low = lead == 0xE0 ? 0xA0 : 0x80;
            const unsigned char high = lead == 0xED ? 0x9F : 0xBF;
            return p[1] >= low && p[1] <= high && continuation(p[2]) ? 3 : 0;
        }
        if (lead >= 0xF0 && lead <= 0xF4) {
            if (left < 4) return 0;
            const unsigned char low = lead == 0xF0 ? 0x90 : 0x80;
            const unsigned char high = lead == 0xF4 ? 0x8F : 0xBF;
            return p[1] >= low && p[1] <= high && continuation(p[2]) && continuation(p[3]) ? 4 : 0;
        }
        return 0;
    }

    // Whether all eight bytes at `p` are printable ASCII other than '"' and '\\', the bytes
    // that need no further look; tested together as one word.
    static bool plainBytes(const unsigned char* p)
    {
        constexpr std::uint64_t ones = 0x0101010101010101;
        constexpr std::uint64_t highs = 0x8080808080808080;
        std::uint64_t word = 0;
        std::memcpy(&word, p, sizeof word);
        const auto hasZeroByte = [](std::uint64_t v) { return ((v - ones) & ~v & highs) != 0; };
        const bool special = (word & highs) != 0 || ((word - 0x20 * ones) & ~word & highs) != 0 ||
                             hasZeroByte(word ^ ('"' * ones)) || hasZeroByte(word ^ ('\\' * ones));
        return !special;
    }

    // The rest of a string after its opening quote, into `out` (cleared first). Runs of plain
    // bytes are appended whole; the short escapes are decoded; \u escapes are declined.
    bool readStringBody(std::string& out)
    {
        out.clear();
        const auto* q = reinterpret_cast<const unsigned char*>(p_);
        const auto* const end = reinterpret_cast<const unsigned char*>(end_);
        const auto* run = q;
        const auto flush = [&] { out.append(reinterpret_cast<const char*>(run), static_cast<std::size_t>(q - run)); };
        while (q != end) {
            if (end - q >= 8 && plainBytes(q)) {
                q += 8;
                continue;
            }
            const unsigned char byte = *q;
            if (byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\') {
                ++q;
            } else if (byte == '"') {
                flush();
                p_ = reinterpret_cast<const char*>(q + 1);
                return true;
            } else if (byte == '\\') {
                flush();
                if (++q == end) return false;
                switch (*q) {
                case '"': out.push_back('"'); break;
                case '\\': out.push_back('\\'); break;
                case '/': out.push_back('/'); break;
                case 'b': out.push_back('\b'); break;
                case 'f': out.push_back('\f'); break;
                case 'n': out.push_back('\n'); break;
                case 'r': out.push_back('\r'); break;
                case 't': out.push_back('\t'); break;
                default: return false;
                }
                run = ++q;
            } else if (byte < 0x20) {
                return false;
            } else {
                const std::size_t length = utf8SequenceLength(q, end);
                if (length == 0) return false;
                q += length;
            }
        }
        return false;
    }

    const char* p_;
    const char* end_;
};

} // namespace

Response::Response(std::optional<Date> createdAt, std::optional<NotificationData> data,
                   std::optional<std::int64_t> errorCode, std::optional<std::string> errorMessage,
                   std::optional<std::string> id, std::optional<bool> isRead)
    : data(std::move(data)), id(std::move(id)), isRead(isRead), createdAt_(createdAt), errorCode_(errorCode),
      errorMessage_(std::move(errorMessage))
{
}

void to_json(nlohmann::json& json, const Response& value)
{
    json = nlohmann::json::object();
    coding::encodeIfPresent(json, "createdAt", value.createdAt_);
    coding::encodeIfPresent(json, "data", value.data);
    coding::encodeIfPresent(json, "errorCode", value.errorCode_);
    coding::encodeIfPresent(json, "errorMessage", value.errorMessage_);
    coding::encodeIfPresent(json, "id", value.id);
    coding::encodeIfPresent(json, "isRead", value.isRead);
}

void from_json(const nlohmann::json& json, Response& value)
{
    coding::requireObject(json);
    coding::decodeIfPresent(json, "createdAt", value.createdAt_);
    coding::decodeIfPresent(json, "data", value.data);
    coding::decodeIfPresent(json, "errorCode", value.errorCode_);
    coding::decodeIfPresent(json, "errorMessage", value.errorMessage_);
    coding::decodeIfPresent(json, "id", value.id);
    coding::decodeIfPresent(json, "isRead", value.isRead);
}

bool fastDecode(std::string_view json, Response& value)
{
    // Filled in place: an absent key leaves its field empty, as in from_json. On false the
    // record is left part-filled, which the contract allows.
    value.createdAt_.reset();
    value.data.reset();
    value.errorCode_.reset();
    value.errorMessage_.reset();
    value.id.reset();
    value.isRead.reset();

    Scanner scanner(json);
    scanner.skipWhitespace();
    if (!scanner.consume('{')) return false;
    scanner.skipWhitespace();
    if (!scanner.consume('}')) {
        while (true) {
            if (!scanner.consume('"')) return false;
            const Scanner::Key key = scanner.readKey();
            scanner.skipWhitespace();
            if (!scanner.consume(':')) return false;
            scanner.skipWhitespace();
            bool read = false;
            switch (key) {
            case Scanner::Key::createdAt: read = scanner.readDate(value.createdAt_); break;
            case Scanner::Key::data: read = scanner.readData(value.data); break;
            case Scanner::Key::errorCode: read = scanner.readInt64(value.errorCode_); break;
            case Scanner::Key::errorMessage: read = scanner.readString(value.errorMessage_); break;
            case Scanner::Key::id: read = scanner.readString(value.id); break;
            case Scanner::Key::isRead: read = scanner.readBool(value.isRead); break;
            default: return false;
            }
            if (!read) return false;
            scanner.skipWhitespace();
            if (scanner.consume('}')) break;
            if (!scanner.consume(',')) return false;
            scanner.skipWhitespace();
        }
    }
    scanner.skipWhitespace();
    return scanner.atEnd();
}

} // namespace fexo
