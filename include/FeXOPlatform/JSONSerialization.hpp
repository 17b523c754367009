#pragma once

#include <FeXOPlatform/AnyValue.hpp>
#include <FeXOPlatform/CocoaError.hpp>
#include <FeXOPlatform/Export.hpp>

#include <string>
#include <string_view>

namespace fexo {

// Generic JSON reading and writing of AnyValue trees, with no options.
class FEXO_EXPORT JSONSerialization {
public:
    // Compact JSON text of an array or dictionary. Throws CocoaError (propertyListWriteInvalid)
    // for what JSON cannot hold: another kind at the top level, a key that is not text, a date,
    // data, a number that is not finite, or text that is not valid UTF-8.
    static std::string data(const AnyValue& object);

    // The value tree of JSON text; integers stay integers. Throws CocoaError
    // (propertyListReadCorrupt) when the text is not valid JSON.
    static AnyValue jsonObject(std::string_view data);
};

} // namespace fexo
