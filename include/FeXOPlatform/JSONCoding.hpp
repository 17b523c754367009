#pragma once

// Strict JSON coding helpers used by every record's to_json/from_json.
//
// Decoding rules: a value must be of exactly the field's JSON kind (text is never read from a
// number, a boolean never from 0/1); an absent key or null leaves an optional field empty; a
// failure anywhere fails the whole record with a DecodingError whose coding path leads to the
// offending value. Encoding writes one key per present field and never writes null.

#include <FeXOPlatform/Date.hpp>
#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/EncodingError.hpp>
#include <FeXOPlatform/Export.hpp>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fexo::coding {

using Json = nlohmann::json;

// "a string", "a number", "null", ...: the found kind in type-mismatch messages.
FEXO_EXPORT std::string kindDescription(const Json& value);
[[noreturn]] FEXO_EXPORT void throwTypeMismatch(std::string_view expectedType, const Json& found);

// Every record's from_json starts here: anything but a JSON object is a type mismatch.
FEXO_EXPORT void requireObject(const Json& value);

FEXO_EXPORT void decodeValue(const Json& value, std::string& out);
FEXO_EXPORT void decodeValue(const Json& value, bool& out);
// A JSON integer, or a number without fraction, that fits a signed 64-bit integer.
FEXO_EXPORT void decodeValue(const Json& value, std::int64_t& out);
FEXO_EXPORT void decodeValue(const Json& value, double& out);
// A JSON number of seconds since 2001-01-01 00:00:00 UTC; no other date form.
FEXO_EXPORT void decodeValue(const Json& value, Date& out);

FEXO_EXPORT void encodeValue(Json& out, const std::string& value);
FEXO_EXPORT void encodeValue(Json& out, bool value);
FEXO_EXPORT void encodeValue(Json& out, std::int64_t value);
// Throws EncodingError for a value that is not finite.
FEXO_EXPORT void encodeValue(Json& out, double value);
FEXO_EXPORT void encodeValue(Json& out, const Date& value);

template <class T>
concept JSONRecord = requires(const Json& j, T& record)
{
    from_json(j, record);
};

template <class T>
concept JSONEncodableRecord = requires(Json& j, const T& record)
{
    to_json(j, record);
};

template <class T>
constexpr std::string_view codingTypeName()
{
    if constexpr (std::is_same_v<T, std::string>)
        return "String";
    else if constexpr (std::is_same_v<T, bool>)
        return "Bool";
    else if constexpr (std::is_same_v<T, std::int64_t>)
        return "Int64";
    else if constexpr (std::is_same_v<T, double> || std::is_same_v<T, Date>)
        return "Double";
    else
        return "Dictionary<String, Any>";
}

// Runs `body`; a coding error thrown inside gets `component` put in front of its path.
template <class F>
void atPath(std::string_view component, F&& body)
{
    try {
        std::forward<F>(body)();
    } catch (DecodingError& error) {
        error.prependPathComponent(std::string(component));
        throw;
    } catch (EncodingError& error) {
        error.prependPathComponent(std::string(component));
        throw;
    }
}

template <JSONRecord T>
void decodeValue(const Json& value, T& out)
{
    from_json(value, out);
}

template <class T>
void decodeValue(const Json& value, std::vector<T>& out)
{
    if (!value.is_array()) throwTypeMismatch("Array<Any>", value);
    std::vector<T> elements(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        atPath("Index " + std::to_string(i), [&] {
            if (value[i].is_null()) {
                throw DecodingError::valueNotFound(std::string(codingTypeName<T>()),
                                                   "Expected " + std::string(codingTypeName<T>()) +
                                                       " but found null value instead.");
            }
            decodeValue(value[i], elements[i]);
        });
    }
    out = std::move(elements);
}

// Optional field: absent key or null leaves `out` empty.
template <class T>
void decodeIfPresent(const Json& object, const char* key, std::optional<T>& out)
{
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) {
        out.reset();
        return;
    }
    T decoded{};
    atPath(key, [&] { decodeValue(*it, decoded); });
    out = std::move(decoded);
}

// Required field: an absent key is keyNotFound, null is valueNotFound.
template <class T>
void decodeRequired(const Json& object, const char* key, T& out)
{
    const auto it = object.find(key);
    if (it == object.end()) {
        throw DecodingError::keyNotFound(key, "No value associated with key \"" + std::string(key) + "\".");
    }
    atPath(key, [&] {
        if (it->is_null()) {
            throw DecodingError::valueNotFound(std::string(codingTypeName<T>()), "Expected " +
                                                                                     std::string(codingTypeName<T>()) +
                                                                                     " value but found null instead.");
        }
        decodeValue(*it, out);
    });
}

template <JSONEncodableRecord T>
void encodeValue(Json& out, const T& record)
{
    to_json(out, record);
}

template <class T>
void encodeValue(Json& out, const std::vector<T>& values)
{
    out = Json::array();
    for (std::size_t i = 0; i < values.size(); ++i) {
        Json element;
        atPath("Index " + std::to_string(i), [&] { encodeValue(element, values[i]); });
        out.push_back(std::move(element));
    }
}

template <class T>
void encodeRequired(Json& object, const char* key, const T& value)
{
    Json encoded;
    atPath(key, [&] { encodeValue(encoded, value); });
    object[key] = std::move(encoded);
}

// Optional field: written only when present, never as null.
template <class T>
void encodeIfPresent(Json& object, const char* key, const std::optional<T>& value)
{
    if (value) encodeRequired(object, key, *value);
}

} // namespace fexo::coding
