#pragma once

#include <FeXOPlatform/PropertyListValue.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fexo {

// The kind column of a stored value. These numbers are on disk in every existing store: never
// renumber or reuse one; a new kind takes the next free number.
enum class StoredKind : std::int64_t {
    string = 0,
    integer = 1,
    real = 2,
    boolean = 3,
    date = 4,
    data = 5,
    array = 6,
    dictionary = 7,
};

StoredKind storedKindOf(PropertyListValue::Kind kind);

// Stored form: text and data as their raw bytes, so reading a data value is one blob read;
// scalars as fixed little-endian bytes, exact for every double including NaN; arrays and
// dictionaries as a binary property list.
std::string encodeStoredValue(const PropertyListValue& value);

// The value of a stored row; nothing for a row that no writer of the store produced (an unknown
// kind, a scalar of the wrong width, a property list of another kind).
std::optional<PropertyListValue> decodeStoredValue(std::int64_t kind, std::string_view bytes);

} // namespace fexo
