#include <FeXONotificationService/ResponseFastDecoder.hpp>

#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXOPlatform/UTF8.hpp>

#include <rapidjson/reader.h>
#include <rapidjson/stream.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <system_error>

namespace fexo {

namespace {

// Strict RFC 8259 JSON, parsed in place in a copy of the text (strings are unescaped where they
// stand). The text is checked in one pass before parsing (plainText): as UTF-8, faster than the
// parser's own check of every character, and for its nesting, which bounds the parser's
// recursion; in this mode the parser never uses its own stack, whose first growth in RapidJSON
// 1.1 offsets a null pointer. Numbers come as their text and are converted here, correctly
// rounded, as the full decoder converts them (RapidJSON's own conversion of large exponents is
// not exact).
constexpr unsigned parseFlags = rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;

// More opening brackets than this, in strings or not, and the text is left to the full decoder:
// the parser recurses once per level. A stored record nests two levels.
constexpr std::size_t maximumOpenings = 64;

enum class Kind {
    null,
    boolean,
    string,
    number
};
enum class Key {
    none,
    createdAt,
    data,
    errorCode,
    errorMessage,
    id,
    isRead,
    text,
    sender
};

struct Fields {
    std::optional<Date>& createdAt;
    std::optional<NotificationData>& data;
    std::optional<std::int64_t>& errorCode;
    std::optional<std::string>& errorMessage;
    std::optional<std::string>& id;
    std::optional<bool>& isRead;
};

bool integral(std::string_view number)
{
    return number.find_first_of(".eE") == std::string_view::npos;
}

// The readers below return false to decline: the value is one this reader leaves to the full
// decoder, because it is of the wrong type (the full decoder then builds the error and its path)
// or sits where the two could differ (a negative zero, overflow, underflow, ...).

bool readText(Kind kind, std::string_view text, std::optional<std::string>& out)
{
    if (kind == Kind::null) {
        out.reset();
        return true;
    }
    if (kind != Kind::string) return false;
    out.emplace(text);
    return true;
}

// Whether the text is well-formed UTF-8 (no overlong form, no surrogate, nothing past U+10FFFF)
// with no NUL byte, no \u escape of a lone surrogate and at most maximumOpenings of "[" and "{". Texts that are not are left to the full
// decoder: it refuses a NUL and invalid UTF-8, and a lone surrogate escape wherever it stands,
// while the parser would take a NUL for the end and a lone low surrogate for text. Eight plain
// ASCII bytes are passed at a time.
bool plainText(std::string_view text)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t size = text.size();
    constexpr std::uint64_t ones = 0x0101010101010101ULL;
    constexpr std::uint64_t highs = 0x8080808080808080ULL;
    std::size_t openings = 0;
    std::size_t i = 0;
    while (i < size) {
        if (i + 8 <= size) {
            std::uint64_t word = 0;
            std::memcpy(&word, bytes + i, 8);
            // No byte with its top bit set, none zero, none a backslash and none "[" or "{".
            const std::uint64_t backslashes = word ^ (ones * '\\');
            const std::uint64_t openings = (word | (ones * 0x20)) ^ (ones * '{');
            if (((word | ((word - ones) & ~word) | ((backslashes - ones) & ~backslashes) |
                  ((openings - ones) & ~openings)) &
                 highs) == 0) {
                i += 8;
                continue;
            }
        }
        const unsigned char c = bytes[i];
        if (c == 0) return false;
        if (c == '\\') {
            // A \u escape of a surrogate passes only as a high one directly followed by a low one.
            const auto surrogate = [&](std::size_t at, char first, char last) {
                if (at + 5 >= size || bytes[at] != '\\' || bytes[at + 1] != 'u' || (bytes[at + 2] | 0x20) != 'd')
                    return false;
                const auto digit = static_cast<char>(bytes[at + 3] | 0x20);
                return digit >= first && digit <= last;
            };
            if (surrogate(i, 'c', 'f')) return false;
            if (surrogate(i, '8', 'b')) {
                if (!surrogate(i + 6, 'c', 'f')) return false;
                i += 12;
                continue;
            }
            i += 2; // an escaped backslash does not start another escape
            continue;
        }
        if (c == '[' || c == '{') {
            if (++openings > maximumOpenings) return false;
        }
        if (c < 0x80) {
            ++i;
            continue;
        }
        const std::size_t length = decodeUTF8Character(std::string_view(text.data() + i, size - i)).length;
        if (length == 0) return false;
        i += length;
    }
    return true;
}

bool readDouble(std::string_view number, double& out)
{
    if (integral(number)) {
        std::int64_t integer = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), integer);
        if (error == std::errc{} && end == number.data() + number.size()) {
            out = static_cast<double>(integer); // "-0" is the integer 0
            return true;
        }
        if (number.front() == '-') return false;
        std::uint64_t unsignedInteger = 0;
        const auto [uend, uerror] = std::from_chars(number.data(), number.data() + number.size(), unsignedInteger);
        if (uerror == std::errc{} && uend == number.data() + number.size()) {
            out = static_cast<double>(unsignedInteger);
            return true;
        }
    }
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), out);
    return error == std::errc{} && end == number.data() + number.size() && std::isfinite(out) && out != 0;
}

bool readDate(Kind kind, std::string_view number, std::optional<Date>& out)
{
    double seconds = 0;
    if (kind == Kind::null)
        out.reset();
    else if (kind == Kind::number && readDouble(number, seconds))
        out = Date(seconds);
    else
        return false;
    return true;
}

bool readInt64(Kind kind, std::string_view number, std::optional<std::int64_t>& out)
{
    if (kind == Kind::null) {
        out.reset();
        return true;
    }
    if (kind != Kind::number) return false;
    if (integral(number)) {
        std::int64_t integer = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), integer);
        if (error != std::errc{} || end != number.data() + number.size()) return false;
        out = integer;
        return true;
    }
    double real = 0;
    if (!readDouble(number, real)) return false;
    if (std::trunc(real) != real || real < -9223372036854775808.0 || real >= 9223372036854775808.0) return false;
    out = static_cast<std::int64_t>(real);
    return true;
}

// Walks every event of the text. Of repeated keys the last counts, as in the full decoder: each
// "data" object starts a new record. Containers under other keys are read (and so checked)
// but ignored.
class RecordReader : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, RecordReader> {
public:
    explicit RecordReader(Fields fields) : fields_(fields) { }

    bool Null() { return scalar(Kind::null, {}); }
    bool Bool(bool value)
    {
        boolean_ = value;
        return scalar(Kind::boolean, {});
    }
    bool String(const char* text, rapidjson::SizeType length, bool) { return scalar(Kind::string, {text, length}); }
    // The full decoder refuses a number beyond a double's range wherever it stands, under any key.
    bool RawNumber(const char* text, rapidjson::SizeType length, bool)
    {
        const std::string_view number(text, length);
        double real = 0;
        if ((!integral(number) || length > 18) && std::from_chars(text, text + length, real).ec != std::errc{})
            return false;
        return scalar(Kind::number, number);
    }

    bool Key(const char* text, rapidjson::SizeType length, bool)
    {
        const std::string_view name(text, length);
        if (skipFrom_ != 0) return true;
        if (depth_ == 1) {
            key_ = name == "createdAt"      ? Key::createdAt
                   : name == "data"         ? Key::data
                   : name == "errorCode"    ? Key::errorCode
                   : name == "errorMessage" ? Key::errorMessage
                   : name == "id"           ? Key::id
                   : name == "isRead"       ? Key::isRead
                                            : Key::none;
        } else {
            key_ = name == "text" ? Key::text : name == "sender" ? Key::sender : Key::none;
        }
        return true;
    }

    bool StartObject()
    {
        ++depth_;
        if (skipFrom_ != 0 || depth_ == 1) return true;
        if (depth_ == 2 && key_ == Key::data) {
            data_ = NotificationData();
            return true;
        }
        return startIgnored();
    }
    bool EndObject(rapidjson::SizeType)
    {
        if (skipFrom_ == 0 && depth_ == 2) fields_.data = std::move(data_);
        return end();
    }
    bool StartArray()
    {
        ++depth_;
        if (skipFrom_ != 0) return true;
        return depth_ != 1 && startIgnored();
    }
    bool EndArray(rapidjson::SizeType) { return end(); }

private:
    // A container under a key of the record's own is of the wrong type; any other is ignored.
    bool startIgnored()
    {
        if (key_ != Key::none) return false;
        skipFrom_ = depth_;
        return true;
    }
    bool end()
    {
        if (depth_ == skipFrom_) skipFrom_ = 0;
        --depth_;
        return true;
    }

    bool scalar(Kind kind, std::string_view text)
    {
        if (skipFrom_ != 0) return true;
        if (depth_ == 0) return false; // the top level is not an object
        switch (key_) {
        case Key::none:
            return true;
        case Key::createdAt:
            return readDate(kind, text, fields_.createdAt);
        case Key::data:
            if (kind != Kind::null) return false;
            fields_.data.reset();
            return true;
        case Key::errorCode:
            return readInt64(kind, text, fields_.errorCode);
        case Key::errorMessage:
            return readText(kind, text, fields_.errorMessage);
        case Key::id:
            return readText(kind, text, fields_.id);
        case Key::isRead:
            if (kind == Kind::null)
                fields_.isRead.reset();
            else if (kind == Kind::boolean)
                fields_.isRead = boolean_;
            else
                return false;
            return true;
        case Key::text:
            return readText(kind, text, data_.text);
        case Key::sender:
            return readText(kind, text, data_.sender);
        }
        return false;
    }

    Fields fields_;
    NotificationData data_;
    enum Key key_ = Key::none;
    int depth_ = 0;
    int skipFrom_ = 0; // depth of the ignored container being read, 0 when none
    bool boolean_ = false;
};

} // namespace

bool fastDecode(std::string_view json, Response& value)
{
    if (json.empty() || !plainText(json)) return false;

    // Filled in place: an absent key leaves its field empty, as in from_json. On false the
    // record is left part-filled, which the contract allows.
    value = Response();
    RecordReader reader(Fields{ResponseAccess::createdAt(value), value.data, ResponseAccess::errorCode(value),
                               ResponseAccess::errorMessage(value), value.id, value.isRead});
    // The copy's terminating NUL (plainText allows none inside) ends the text. Kept per thread,
    // so its memory is reused from record to record.
    thread_local std::string text;
    text.assign(json);
    rapidjson::InsituStringStream stream(text.data());
    rapidjson::Reader parser;
    return !parser.Parse<parseFlags>(stream, reader).IsError();
}

} // namespace fexo
