// The user-info serialisation: any bytes either read to a value or throw CocoaError. An array
// or dictionary read from JSON can always be written again, and reads back equal; any other
// top-level value is refused by the writer with CocoaError.

#include "FuzzCheck.hpp"

#include <FeXOPlatform/JSONSerialization.hpp>

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fexo::AnyValue value;
    try {
        value = fexo::JSONSerialization::jsonObject(fexo::fuzz::bytes(data, size));
    } catch (const fexo::CocoaError& error) {
        FUZZ_REQUIRE(error.code() == fexo::CocoaError::propertyListReadCorrupt);
        return 0;
    }
    const bool container =
        value.kind() == fexo::AnyValue::Kind::array || value.kind() == fexo::AnyValue::Kind::dictionary;
    std::string written;
    try {
        written = fexo::JSONSerialization::data(value);
    } catch (const fexo::CocoaError& error) {
        FUZZ_REQUIRE(!container);
        FUZZ_REQUIRE(error.code() == fexo::CocoaError::propertyListWriteInvalid);
        return 0;
    }
    FUZZ_REQUIRE(container);
    FUZZ_REQUIRE(fexo::JSONSerialization::jsonObject(written) == value);
    FUZZ_REQUIRE(fexo::JSONSerialization::data(fexo::JSONSerialization::jsonObject(written)) == written);
    return 0;
}
