#include <FeXONotificationService/Response.hpp>

#include <simdjson.h>

#include <cmath>
#include <limits>

namespace fexo {

namespace {

using simdjson::dom::element;
using simdjson::dom::element_type;

// Each reader below sets `out` and returns true only where from_json would accept the value
// and produce the same; everything else declines and goes to the full decoder.

bool readString(const element& value, std::optional<std::string>& out)
{
    if (value.is_null()) return true;
    std::string_view text;
    if (value.get_string().get(text) != simdjson::SUCCESS) return false;
    out = std::string(text);
    return true;
}

bool readBool(const element& value, std::optional<bool>& out)
{
    if (value.is_null()) return true;
    bool flag = false;
    if (value.get_bool().get(flag) != simdjson::SUCCESS) return false;
    out = flag;
    return true;
}

// A negative zero is declined: written "-0" the full reader takes it as the integer 0, written
// "-0.0" as the double -0.0, and the parsed value no longer tells which.
bool readNumber(const element& value, double& out)
{
    switch (value.type()) {
    case element_type::INT64: out = static_cast<double>(value.get_int64().value_unsafe()); return true;
    case element_type::UINT64: out = static_cast<double>(value.get_uint64().value_unsafe()); return true;
    case element_type::DOUBLE:
        out = value.get_double().value_unsafe();
        return !(out == 0 && std::signbit(out));
    default: return false;
    }
}

bool readDate(const element& value, std::optional<Date>& out)
{
    if (value.is_null()) return true;
    double seconds = 0;
    if (!readNumber(value, seconds)) return false;
    out = Date(seconds);
    return true;
}

bool readInt64(const element& value, std::optional<std::int64_t>& out)
{
    if (value.is_null()) return true;
    if (value.type() == element_type::INT64) {
        out = value.get_int64().value_unsafe();
        return true;
    }
    double number = 0;
    if (value.type() != element_type::DOUBLE || !readNumber(value, number)) return false;
    if (std::trunc(number) != number || number < -9223372036854775808.0 || number >= 9223372036854775808.0) return false;
    out = static_cast<std::int64_t>(number);
    return true;
}

bool readData(const element& value, std::optional<NotificationData>& out)
{
    if (value.is_null()) return true;
    simdjson::dom::object object;
    if (value.get_object().get(object) != simdjson::SUCCESS) return false;
    // The last of repeated keys counts, as in the full reader.
    std::optional<element> text;
    std::optional<element> sender;
    for (const auto field : object) {
        if (field.key == "text") text = field.value;
        else if (field.key == "sender") sender = field.value;
    }
    NotificationData data;
    if ((text && !readString(*text, data.text)) || (sender && !readString(*sender, data.sender))) return false;
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

} // namespace fexo

namespace fexo {

bool fastDecode(std::string_view json, Response& value)
{
    // One parser per thread keeps its buffers between records; the document lives only here.
    thread_local simdjson::dom::parser parser;
    element root;
    if (parser.parse(json.data(), json.size()).get(root) != simdjson::SUCCESS) return false;
    simdjson::dom::object object;
    if (root.get_object().get(object) != simdjson::SUCCESS) return false;

    std::optional<element> createdAt, data, errorCode, errorMessage, id, isRead;
    for (const auto field : object) {
        const std::string_view key = field.key;
        if (key == "createdAt") createdAt = field.value;
        else if (key == "data") data = field.value;
        else if (key == "errorCode") errorCode = field.value;
        else if (key == "errorMessage") errorMessage = field.value;
        else if (key == "id") id = field.value;
        else if (key == "isRead") isRead = field.value;
    }
    Response decoded;
    if ((createdAt && !readDate(*createdAt, decoded.createdAt_)) || (data && !readData(*data, decoded.data)) ||
        (errorCode && !readInt64(*errorCode, decoded.errorCode_)) ||
        (errorMessage && !readString(*errorMessage, decoded.errorMessage_)) || (id && !readString(*id, decoded.id)) ||
        (isRead && !readBool(*isRead, decoded.isRead))) {
        return false;
    }
    value = std::move(decoded);
    return true;
}

} // namespace fexo
