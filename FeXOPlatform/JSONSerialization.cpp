#include <FeXOPlatform/JSONSerialization.hpp>

#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/EncodingError.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <cmath>

namespace fexo {

namespace {

// Nesting deeper than this is refused rather than walked recursively without bound.
constexpr int maximumDepth = 512;

[[noreturn]] void invalid(const std::string& what)
{
    throw CocoaError(CocoaError::propertyListWriteInvalid, "Invalid " + what + " in JSON write");
}

nlohmann::json toJSON(const AnyValue& value, int depth)
{
    if (depth > maximumDepth) invalid("nesting (too deep)");
    switch (value.kind()) {
    case AnyValue::Kind::null:
        return nullptr;
    case AnyValue::Kind::string:
        return *value.string();
    case AnyValue::Kind::integer:
        return *value.integer();
    case AnyValue::Kind::real:
        if (!std::isfinite(*value.real())) invalid("number value (" + std::to_string(*value.real()) + ")");
        return *value.real();
    case AnyValue::Kind::boolean:
        return *value.boolean();
    case AnyValue::Kind::date:
        invalid("type (Date)");
    case AnyValue::Kind::data:
        invalid("type (Data)");
    case AnyValue::Kind::array: {
        auto array = nlohmann::json::array();
        for (const auto& element : *value.array()) array.push_back(toJSON(element, depth + 1));
        return array;
    }
    case AnyValue::Kind::dictionary: {
        auto object = nlohmann::json::object();
        for (const auto& entry : *value.dictionary()) {
            if (entry.key.string() == nullptr) invalid("(non-string) key");
            object[*entry.key.string()] = toJSON(entry.value, depth + 1);
        }
        return object;
    }
    }
    invalid("type");
}

AnyValue fromJSON(const nlohmann::json& json, int depth)
{
    if (depth > maximumDepth) {
        throw CocoaError(CocoaError::propertyListReadCorrupt, "Too many nested arrays or dictionaries");
    }
    switch (json.type()) {
    case nlohmann::json::value_t::string:
        return AnyValue(json.get<std::string>());
    case nlohmann::json::value_t::number_integer:
        return AnyValue(json.get<std::int64_t>());
    case nlohmann::json::value_t::number_unsigned: {
        const auto u = json.get<std::uint64_t>();
        if (u <= static_cast<std::uint64_t>(INT64_MAX)) return AnyValue(static_cast<std::int64_t>(u));
        return AnyValue(static_cast<double>(u));
    }
    case nlohmann::json::value_t::number_float:
        return AnyValue(json.get<double>());
    case nlohmann::json::value_t::boolean:
        return AnyValue(json.get<bool>());
    case nlohmann::json::value_t::array: {
        AnyValue::Array array;
        array.reserve(json.size());
        for (const auto& element : json) array.push_back(fromJSON(element, depth + 1));
        return AnyValue(std::move(array));
    }
    case nlohmann::json::value_t::object: {
        AnyValue::Dictionary dictionary;
        dictionary.reserve(json.size());
        for (const auto& [key, element] : json.items())
            dictionary.push_back({AnyValue(key), fromJSON(element, depth + 1)});
        return AnyValue(std::move(dictionary));
    }
    default:
        return AnyValue();
    }
}

} // namespace

std::string JSONSerialization::data(const AnyValue& object)
{
    if (object.kind() != AnyValue::Kind::array && object.kind() != AnyValue::Kind::dictionary) {
        invalid("top-level type");
    }
    const nlohmann::json json = toJSON(object, 0);
    try {
        return JSONEncoder::serialize(json);
    } catch (const EncodingError&) {
        invalid("string (not valid UTF-8)");
    }
}

AnyValue JSONSerialization::jsonObject(std::string_view data)
{
    try {
        return fromJSON(JSONDecoder::parse(data), 0);
    } catch (const DecodingError& error) {
        throw CocoaError(CocoaError::propertyListReadCorrupt, error.debugDescription());
    }
}

} // namespace fexo
