#include <FeXONotificationService/Response.hpp>

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>

#include <cmath>
#include <cstring>

namespace fexo {

namespace {

using Document = rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<>,
                                            rapidjson::MemoryPoolAllocator<>>;
using Value = Document::ValueType;

// Strict RFC 8259 JSON, checked as UTF-8 throughout, without recursion (any depth is safe),
// numbers correctly rounded. Everything in the text is read and checked, known keys or not.
constexpr unsigned parseFlags =
    rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag | rapidjson::kParseValidateEncodingFlag;

// Each reader below returns false to decline: the value is valid JSON but one that this reader
// leaves to the full decoder, because it is of the wrong type (the full decoder then builds the
// error and its path) or sits where the two readers could differ.

bool readText(const Value& value, std::optional<std::string>& out)
{
    if (value.IsNull()) {
        out.reset();
        return true;
    }
    if (!value.IsString()) return false;
    const char* text = value.GetString();
    const std::size_t length = value.GetStringLength();
    // A lone low surrogate written as a \u escape comes out as the bytes of a surrogate, which
    // the full decoder refuses.
    for (const char* p = text; (p = static_cast<const char*>(std::memchr(p, '\xED', length - (p - text))));) {
        if (++p == text + length || static_cast<unsigned char>(*p) >= 0xA0) return false;
    }
    out.emplace(text, length);
    return true;
}

bool readBool(const Value& value, std::optional<bool>& out)
{
    if (value.IsNull()) out.reset();
    else if (value.IsBool()) out = value.GetBool();
    else return false;
    return true;
}

// A double zero may be a negative zero or an underflow; the full decoder settles those.
bool readDate(const Value& value, std::optional<Date>& out)
{
    if (value.IsNull()) {
        out.reset();
        return true;
    }
    if (!value.IsNumber() || (value.IsDouble() && value.GetDouble() == 0)) return false;
    out = Date(value.GetDouble());
    return true;
}

bool readInt64(const Value& value, std::optional<std::int64_t>& out)
{
    if (value.IsNull()) {
        out.reset();
        return true;
    }
    if (value.IsInt64()) {
        out = value.GetInt64();
        return true;
    }
    if (!value.IsDouble()) return false; // a string, or an integer beyond Int64
    const double real = value.GetDouble();
    if (std::trunc(real) != real || real < -9223372036854775808.0 || real >= 9223372036854775808.0) return false;
    out = static_cast<std::int64_t>(real);
    return true;
}

bool is(const Value& key, std::string_view name)
{
    return key.GetStringLength() == name.size() && std::memcmp(key.GetString(), name.data(), name.size()) == 0;
}

// Of repeated keys the last counts, as in the full decoder: each "data" starts a new record.
bool readData(const Value& value, std::optional<NotificationData>& out)
{
    if (value.IsNull()) {
        out.reset();
        return true;
    }
    if (!value.IsObject()) return false;
    NotificationData data;
    for (const auto& member : value.GetObject()) {
        if (is(member.name, "text")) {
            if (!readText(member.value, data.text)) return false;
        } else if (is(member.name, "sender")) {
            if (!readText(member.value, data.sender)) return false;
        }
    }
    out = std::move(data);
    return true;
}

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
    // The parser takes a NUL byte for the end of the text; JSON never holds one, so any NUL is
    // left to the full decoder, which refuses it.
    if (json.empty() || std::memchr(json.data(), '\0', json.size()) != nullptr) return false;

    // Small records are parsed without touching the heap.
    char valueBuffer[4096];
    char stackBuffer[1024];
    rapidjson::MemoryPoolAllocator<> valueAllocator(valueBuffer, sizeof valueBuffer);
    rapidjson::MemoryPoolAllocator<> stackAllocator(stackBuffer, sizeof stackBuffer);
    Document document(&valueAllocator, sizeof stackBuffer, &stackAllocator);
    document.Parse<parseFlags>(json.data(), json.size());
    if (document.HasParseError() || !document.IsObject()) return false;

    // Filled in place: an absent key leaves its field empty, as in from_json. On false the
    // record is left part-filled, which the contract allows.
    value = Response();
    for (const auto& member : document.GetObject()) {
        const Value& key = member.name;
        const Value& field = member.value;
        bool read = true;
        if (is(key, "createdAt")) read = readDate(field, value.createdAt_);
        else if (is(key, "data")) read = readData(field, value.data);
        else if (is(key, "errorCode")) read = readInt64(field, value.errorCode_);
        else if (is(key, "errorMessage")) read = readText(field, value.errorMessage_);
        else if (is(key, "id")) read = readText(field, value.id);
        else if (is(key, "isRead")) read = readBool(field, value.isRead);
        if (!read) return false;
    }
    return true;
}

} // namespace fexo
