#include <FeXOPlatform/StoredValueEncoding.hpp>

#include <FeXOPlatform/PropertyList.hpp>

#include <cstring>

namespace fexo {

namespace {

using Kind = PropertyListValue::Kind;

void appendLittleEndian(std::string& out, std::uint64_t bits, std::size_t width)
{
    for (std::size_t i = 0; i < width; ++i) out.push_back(static_cast<char>((bits >> (8 * i)) & 0xFF));
}

std::uint64_t readLittleEndian(std::string_view bytes)
{
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bits |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return bits;
}

std::uint64_t doubleBits(double value)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

double bitsDouble(std::uint64_t bits)
{
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::optional<double> eightByteDouble(std::string_view bytes)
{
    if (bytes.size() != 8) return std::nullopt;
    return bitsDouble(readLittleEndian(bytes));
}

} // namespace

StoredKind storedKindOf(Kind kind)
{
    switch (kind) {
    case Kind::string:
        return StoredKind::string;
    case Kind::integer:
        return StoredKind::integer;
    case Kind::real:
        return StoredKind::real;
    case Kind::boolean:
        return StoredKind::boolean;
    case Kind::date:
        return StoredKind::date;
    case Kind::data:
        return StoredKind::data;
    case Kind::array:
        return StoredKind::array;
    case Kind::dictionary:
        return StoredKind::dictionary;
    }
    return StoredKind::data;
}

std::string encodeStoredValue(const PropertyListValue& value)
{
    std::string out;
    switch (value.kind()) {
    case Kind::string:
        return *value.string();
    case Kind::data:
        return value.data()->bytes;
    case Kind::integer:
        appendLittleEndian(out, static_cast<std::uint64_t>(*value.integer()), 8);
        return out;
    case Kind::real:
        appendLittleEndian(out, doubleBits(*value.real()), 8);
        return out;
    case Kind::date:
        appendLittleEndian(out, doubleBits(value.date()->timeIntervalSinceReferenceDate()), 8);
        return out;
    case Kind::boolean:
        out.push_back(*value.boolean() ? '\1' : '\0');
        return out;
    case Kind::array:
    case Kind::dictionary:
        return PropertyList::serialize(value, PropertyList::Format::binary);
    }
    return out;
}

std::optional<PropertyListValue> decodeStoredValue(std::int64_t kind, std::string_view bytes)
{
    switch (static_cast<StoredKind>(kind)) {
    case StoredKind::string:
        return PropertyListValue(std::string(bytes));
    case StoredKind::data:
        return PropertyListValue(PropertyListValue::Data{std::string(bytes)});
    case StoredKind::integer:
        if (bytes.size() != 8) return std::nullopt;
        return PropertyListValue(static_cast<std::int64_t>(readLittleEndian(bytes)));
    case StoredKind::real:
        if (auto real = eightByteDouble(bytes)) return PropertyListValue(*real);
        return std::nullopt;
    case StoredKind::date:
        if (auto seconds = eightByteDouble(bytes)) return PropertyListValue(Date(*seconds));
        return std::nullopt;
    case StoredKind::boolean:
        if (bytes.size() != 1) return std::nullopt;
        return PropertyListValue(bytes[0] != '\0');
    case StoredKind::array:
    case StoredKind::dictionary: {
        auto parsed = PropertyList::parse(bytes);
        const Kind wanted = kind == static_cast<std::int64_t>(StoredKind::array) ? Kind::array : Kind::dictionary;
        if (!parsed || parsed->kind() != wanted) return std::nullopt;
        return parsed;
    }
    }
    return std::nullopt;
}

} // namespace fexo
