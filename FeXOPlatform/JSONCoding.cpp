#include <FeXOPlatform/JSONCoding.hpp>

#include <cmath>
#include <limits>

namespace fexo::coding {

std::string kindDescription(const Json& value)
{
    switch (value.type()) {
    case Json::value_t::null:
        return "null";
    case Json::value_t::object:
        return "a dictionary";
    case Json::value_t::array:
        return "an array";
    case Json::value_t::string:
        return "a string";
    case Json::value_t::boolean:
        return "a boolean";
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float:
        return "a number";
    case Json::value_t::binary:
    case Json::value_t::discarded:
        break;
    }
    return "an unsupported value";
}

void throwTypeMismatch(std::string_view expectedType, const Json& found)
{
    throw DecodingError::typeMismatch(std::string(expectedType), "Expected to decode " + std::string(expectedType) +
                                                                     " but found " + kindDescription(found) +
                                                                     " instead.");
}

void requireObject(const Json& value)
{
    if (!value.is_object()) throwTypeMismatch("Dictionary<String, Any>", value);
}

void decodeValue(const Json& value, std::string& out)
{
    if (!value.is_string()) throwTypeMismatch("String", value);
    out = value.get_ref<const std::string&>();
}

void decodeValue(const Json& value, bool& out)
{
    if (!value.is_boolean()) throwTypeMismatch("Bool", value);
    out = value.get<bool>();
}

void decodeValue(const Json& value, std::int64_t& out)
{
    switch (value.type()) {
    case Json::value_t::number_integer:
        out = value.get<std::int64_t>();
        return;
    case Json::value_t::number_unsigned: {
        const auto u = value.get<std::uint64_t>();
        if (u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) break;
        out = static_cast<std::int64_t>(u);
        return;
    }
    case Json::value_t::number_float: {
        // 2^63 is exactly representable; anything at or beyond it does not fit.
        const double d = value.get<double>();
        if (!std::isfinite(d) || std::trunc(d) != d || d < -9223372036854775808.0 || d >= 9223372036854775808.0) break;
        out = static_cast<std::int64_t>(d);
        return;
    }
    default:
        throwTypeMismatch("Int64", value);
    }
    throw DecodingError::dataCorrupted("Parsed JSON number <" + value.dump() + "> does not fit in Int64.");
}

void decodeValue(const Json& value, double& out)
{
    if (!value.is_number()) throwTypeMismatch("Double", value);
    out = value.get<double>();
}

void decodeValue(const Json& value, Date& out)
{
    double seconds = 0;
    decodeValue(value, seconds);
    out = Date(seconds);
}

void encodeValue(Json& out, const std::string& value)
{
    out = value;
}

void encodeValue(Json& out, bool value)
{
    out = value;
}

void encodeValue(Json& out, std::int64_t value)
{
    out = value;
}

void encodeValue(Json& out, double value)
{
    if (!std::isfinite(value)) {
        const std::string text = std::isnan(value) ? "nan" : (value > 0 ? "inf" : "-inf");
        throw EncodingError::invalidValue(text, "Unable to encode Double." +
                                                    std::string(std::isnan(value) ? "nan" : "infinity") +
                                                    " directly in JSON.");
    }
    // Whole numbers that a double holds exactly are written without a fraction, as the
    // platform's writer does ("createdAt":0, not 0.0); the value read back is the same double.
    if (std::trunc(value) == value && std::fabs(value) <= 9007199254740992.0) {
        out = static_cast<std::int64_t>(value);
    } else {
        out = value;
    }
}

void encodeValue(Json& out, const Date& value)
{
    encodeValue(out, value.timeIntervalSinceReferenceDate());
}

} // namespace fexo::coding
