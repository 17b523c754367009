// The configuration's property-list reader, both forms: any bytes either give a value or
// nothing, never an exception or a crash. A value that comes back (unless it holds text with
// U+0000, which is read but not written) is written in the XML and in the binary form, and each
// reads back equal: exactly, except that XML dates keep whole
// seconds only (cut toward zero) and binary dates microseconds (libplist cuts, so one
// microsecond may go).

#include "FuzzCheck.hpp"

#include <FeXOPlatform/PropertyList.hpp>

#include <cmath>
#include <optional>
#include <string>

namespace {

using fexo::PropertyList;
using fexo::PropertyListValue;

bool sameDate(double original, double readBack, PropertyList::Format format)
{
    if (format == PropertyList::Format::xml) return std::trunc(original) == readBack;
    return std::fabs(original - readBack) <= 1.5e-6;
}

bool same(const PropertyListValue& original, const PropertyListValue& readBack, PropertyList::Format format)
{
    if (original.kind() != readBack.kind()) return false;
    switch (original.kind()) {
    case PropertyListValue::Kind::real: {
        const double a = *original.real();
        const double b = *readBack.real();
        return (std::isnan(a) && std::isnan(b)) || a == b;
    }
    case PropertyListValue::Kind::date:
        return sameDate(original.date()->timeIntervalSinceReferenceDate(),
                        readBack.date()->timeIntervalSinceReferenceDate(), format);
    case PropertyListValue::Kind::array: {
        const auto& a = *original.array();
        const auto& b = *readBack.array();
        if (a.size() != b.size()) return false;
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (!same(a[i], b[i], format)) return false;
        }
        return true;
    }
    case PropertyListValue::Kind::dictionary: {
        const auto& a = *original.dictionary();
        const auto& b = *readBack.dictionary();
        if (a.size() != b.size()) return false;
        for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j) {
            if (i->first != j->first || !same(i->second, j->second, format)) return false;
        }
        return true;
    }
    default:
        return original == readBack;
    }
}

bool holdsNul(const PropertyListValue& value)
{
    if (const auto* text = value.string()) return text->find('\0') != std::string::npos;
    if (const auto* array = value.array()) {
        for (const auto& element : *array) {
            if (holdsNul(element)) return true;
        }
    }
    if (const auto* dictionary = value.dictionary()) {
        for (const auto& [key, element] : *dictionary) {
            if (key.find('\0') != std::string::npos || holdsNul(element)) return true;
        }
    }
    return false;
}

// Text with U+0000 is read whole but cannot be written; anything else is written.
void checkRoundTrip(const PropertyListValue& value, PropertyList::Format format)
{
    const std::string written = PropertyList::serialize(value, format);
    FUZZ_REQUIRE(written.empty() == holdsNul(value));
    if (written.empty()) return;
    const std::optional<PropertyListValue> readBack = PropertyList::parse(written);
    FUZZ_REQUIRE(readBack.has_value());
    FUZZ_REQUIRE(same(value, *readBack, format));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::optional<PropertyListValue> value = PropertyList::parse(fexo::fuzz::bytes(data, size));
    if (!value) return 0;
    checkRoundTrip(*value, PropertyList::Format::xml);
    checkRoundTrip(*value, PropertyList::Format::binary);
    return 0;
}
