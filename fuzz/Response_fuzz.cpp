// The notification record, from the server and from the store alike: the store hands the
// decoder the stored bytes as they are, so arbitrary bytes (not JSON, not UTF-8) are its input
// too. Any bytes either decode to a Response or throw DecodingError; a decoded record encodes
// without error and decodes back to an equal record.

#include "FuzzCheck.hpp"

#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string stored(fexo::fuzz::bytes(data, size));
    fexo::Response record;
    try {
        record = fexo::JSONDecoder{}.decode<fexo::Response>(stored);
    } catch (const fexo::DecodingError&) {
        return 0;
    }
    // Whatever was read can be written back: a decoded date is always finite.
    const std::string encoded = fexo::JSONEncoder{}.encode(record);
    const auto again = fexo::JSONDecoder{}.decode<fexo::Response>(encoded);
    FUZZ_REQUIRE(again == record);
    FUZZ_REQUIRE(fexo::JSONEncoder{}.encode(again) == encoded);
    return 0;
}
