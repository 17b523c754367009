#pragma once

#include <common/DeliveredContent.hpp>

#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXOPlatform/AnyValue.hpp>

#include <chrono>

namespace fexo::tool {

// Runs the extension's road for one push, as an extension process does: hands the push to the
// library's FeXONotificationExtensionHandler::deliver() and gives what it delivered within
// `timeLimit`. The library decides between the server's record and the push's own alert.
FeXONotificationExtensionHandler::Delivery deliverPush(const AnyValue& userInfo, std::chrono::milliseconds timeLimit);

// What an extension prints for a delivery: its content, with the stored record's id when the
// content is the server's.
DeliveredContent shownContent(const FeXONotificationExtensionHandler::Delivery& delivery);

} // namespace fexo::tool
