#pragma once

#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/JSONCoding.hpp>

#include <concepts>
#include <string_view>

namespace fexo {

// Decodes one record from JSON bytes, with the platform decoder's default settings: keys are
// matched exactly, dates are numbers of seconds since 2001-01-01 00:00:00 UTC.
// Throws DecodingError, and nothing else, on any malformed input. Stateless; use a new one
// per decode or share one across threads.
//
// A record type may offer `bool fastDecode(std::string_view, T&)`, found by argument-dependent
// lookup: a quicker reader for the common case that either yields exactly the value the full
// decoder would, or declines (false) and leaves the text to the full decoder, whose value or
// error is then the result. It never decides a failure itself.
class JSONDecoder {
public:
    template <class T>
    T decode(std::string_view data) const
    {
        if constexpr (requires(T & candidate) {
                          {
                              fastDecode(data, candidate)
                              } -> std::same_as<bool>;
                      }) {
            T value{};
            if (fastDecode(data, value)) return value;
        }
        const coding::Json root = parse(data);
        T value{};
        try {
            coding::decodeValue(root, value);
        } catch (const DecodingError&) {
            throw;
        } catch (const std::exception& error) {
            throw DecodingError::dataCorrupted(error.what());
        }
        return value;
    }

    // The JSON text as a value tree; DecodingError (dataCorrupted) when it is not valid JSON,
    // including text that is not valid UTF-8 and numbers too large for a double.
    FEXO_EXPORT static coding::Json parse(std::string_view data);
};

} // namespace fexo
