// The registration answer: any bytes either decode to a RegisterDeviceModel or throw
// DecodingError; a decoded answer encodes and decodes back to an equal answer.

#include "FuzzCheck.hpp"

#include <FeXONotificationService/RegisterDeviceModel.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fexo::RegisterDeviceModel answer;
    try {
        answer = fexo::JSONDecoder{}.decode<fexo::RegisterDeviceModel>(fexo::fuzz::bytes(data, size));
    } catch (const fexo::DecodingError&) {
        return 0;
    }
    const std::string encoded = fexo::JSONEncoder{}.encode(answer);
    const auto again = fexo::JSONDecoder{}.decode<fexo::RegisterDeviceModel>(encoded);
    FUZZ_REQUIRE(again == answer);
    FUZZ_REQUIRE(fexo::JSONEncoder{}.encode(again) == encoded);
    return 0;
}
