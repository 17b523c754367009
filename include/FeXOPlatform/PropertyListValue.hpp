#pragma once

#include <FeXOPlatform/Date.hpp>
#include <FeXOPlatform/Export.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace fexo {

// One value of a property list: a string, integer, real, boolean, date, data, array or
// dictionary. A string is always told from the other kinds; nothing converts between kinds.
class FEXO_EXPORT PropertyListValue {
public:
    struct Data {
        std::string bytes;
        bool operator==(const Data&) const = default;
    };
    using Array = std::vector<PropertyListValue>;
    using Dictionary = std::map<std::string, PropertyListValue, std::less<>>;

    enum class Kind {
        string,
        integer,
        real,
        boolean,
        date,
        data,
        array,
        dictionary
    };

    PropertyListValue() : storage_(Dictionary{}) { }
    PropertyListValue(std::string value) : storage_(std::move(value)) { }
    PropertyListValue(const char* value) : storage_(std::string(value)) { }
    PropertyListValue(std::int64_t value) : storage_(value) { }
    PropertyListValue(int value) : storage_(static_cast<std::int64_t>(value)) { }
    PropertyListValue(double value) : storage_(value) { }
    PropertyListValue(bool value) : storage_(value) { }
    PropertyListValue(Date value) : storage_(value) { }
    PropertyListValue(Data value) : storage_(std::move(value)) { }
    PropertyListValue(Array value) : storage_(std::move(value)) { }
    PropertyListValue(Dictionary value) : storage_(std::move(value)) { }
    PropertyListValue(const PropertyListValue&) = default;
    PropertyListValue(PropertyListValue&&) = default;
    PropertyListValue& operator=(const PropertyListValue&) = default;
    PropertyListValue& operator=(PropertyListValue&&) = default;
    // Frees nested arrays and dictionaries level by level, never by recursion: a value as deep as
    // a file may nest is freed on any thread's stack, however small.
    ~PropertyListValue();

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

    bool operator==(const PropertyListValue& other) const { return storage_ == other.storage_; }

private:
    std::variant<std::string, std::int64_t, double, bool, Date, Data, Array, Dictionary> storage_;
};

} // namespace fexo
