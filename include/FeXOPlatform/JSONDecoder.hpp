#pragma once

#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/JSONCoding.hpp>

#include <string_view>

namespace fexo {

// Decodes one record from JSON bytes, with the platform decoder's default settings: keys are
// matched exactly, dates are numbers of seconds since 2001-01-01 00:00:00 UTC.
// Throws DecodingError, and nothing else, on any malformed input. Stateless; use a new one
// per decode or share one across threads.
//
// A record type's header may declare an explicit specialization of decode for it, compiled in
// the library, with a quicker reader of the common case in front of the full decoder; the value
// or the error is still exactly the full decoder's.
class JSONDecoder {
public:
    template <class T>
    T decode(std::string_view data) const
    {
        return fullyDecoded<T>(data);
    }

    // The JSON text as a value tree; DecodingError (dataCorrupted) when it is not valid JSON,
    // including text that is not valid UTF-8 and numbers too large for a double.
    FEXO_EXPORT static coding::Json parse(std::string_view data);

private:
    // The full decoder: the value tree, then the record's own mapping.
    template <class T>
    static T fullyDecoded(std::string_view data)
    {
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
};

} // namespace fexo
