#pragma once

#include <FeXOPlatform/Date.hpp>
#include <FeXOPlatform/Export.hpp>

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace fexo {

// A value of any of the kinds a notification's user-info may hold: null, text, integer, real,
// boolean, date, data, array, or dictionary. Dictionary keys may be of any kind too (as on the
// platform, where a key is any hashable value), which is why not every AnyValue can be written
// as JSON. Dictionaries keep their entries in insertion order.
class FEXO_EXPORT AnyValue {
public:
    struct Null {
        bool operator==(const Null&) const = default;
    };
    struct Data {
        std::string bytes;
        bool operator==(const Data&) const = default;
    };
    struct Entry;
    using Array = std::vector<AnyValue>;
    using Dictionary = std::vector<Entry>;

    enum class Kind {
        null,
        string,
        integer,
        real,
        boolean,
        date,
        data,
        array,
        dictionary
    };

    // Defined below Entry: clang instantiates the storage's members where they are defined, and
    // a dictionary's entries must be complete there.
    AnyValue();
    AnyValue(Null);
    AnyValue(std::string value);
    AnyValue(const char* value);
    AnyValue(std::int64_t value);
    AnyValue(int value);
    AnyValue(double value);
    AnyValue(bool value);
    AnyValue(Date value);
    AnyValue(Data value);
    AnyValue(Array value);
    AnyValue(Dictionary value);

    Kind kind() const { return static_cast<Kind>(storage_.index()); }

    // Each accessor gives the value when it is of that kind, else null.
    const std::string* string() const { return std::get_if<std::string>(&storage_); }
    const std::int64_t* integer() const { return std::get_if<std::int64_t>(&storage_); }
    const double* real() const { return std::get_if<double>(&storage_); }
    const bool* boolean() const { return std::get_if<bool>(&storage_); }
    const Date* date() const { return std::get_if<Date>(&storage_); }
    const Data* data() const { return std::get_if<Data>(&storage_); }
    const Array* array() const { return std::get_if<Array>(&storage_); }
    const Dictionary* dictionary() const { return std::get_if<Dictionary>(&storage_); }

    // The value under a text key of a dictionary, else null.
    const AnyValue* operator[](std::string_view key) const;

    bool operator==(const AnyValue& other) const;

private:
    std::variant<Null, std::string, std::int64_t, double, bool, Date, Data, Array, Dictionary> storage_;
};

struct AnyValue::Entry {
    AnyValue key;
    AnyValue value;
    bool operator==(const Entry&) const = default;
};

inline AnyValue::AnyValue() : storage_(Null{})
{
}
inline AnyValue::AnyValue(Null) : storage_(Null{})
{
}
inline AnyValue::AnyValue(std::string value) : storage_(std::move(value))
{
}
inline AnyValue::AnyValue(const char* value) : storage_(std::string(value))
{
}
inline AnyValue::AnyValue(std::int64_t value) : storage_(value)
{
}
inline AnyValue::AnyValue(int value) : storage_(static_cast<std::int64_t>(value))
{
}
inline AnyValue::AnyValue(double value) : storage_(value)
{
}
inline AnyValue::AnyValue(bool value) : storage_(value)
{
}
inline AnyValue::AnyValue(Date value) : storage_(value)
{
}
inline AnyValue::AnyValue(Data value) : storage_(std::move(value))
{
}
inline AnyValue::AnyValue(Array value) : storage_(std::move(value))
{
}
inline AnyValue::AnyValue(Dictionary value) : storage_(std::move(value))
{
}

} // namespace fexo
