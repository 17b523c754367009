// The notification-content request body.

#include "RequestBody.hpp"

#include <FeXONotificationService/NotificationRequestInfo.hpp>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fexo::fuzz::checkRequestBody<fexo::NotificationRequestInfo>(fexo::fuzz::bytes(data, size));
    return 0;
}
