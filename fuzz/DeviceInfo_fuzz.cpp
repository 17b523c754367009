// The device-registration body.

#include "RequestBody.hpp"

#include <FeXONotificationService/DeviceInfo.hpp>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fexo::fuzz::checkRequestBody<fexo::DeviceInfo>(fexo::fuzz::bytes(data, size));
    return 0;
}
