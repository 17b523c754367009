#pragma once

#include <common/DeliveredContent.hpp>

#include <FeXOPlatform/AnyValue.hpp>

#include <chrono>

namespace fexo::tool {

// Runs the extension's road for one push, as an extension process does: hands the push to the
// library's FeXONotificationExtensionHandler::deliver() and gives what it delivered within
// `timeLimit`, with the stored record's id when the content is the server's. Exactly one content
// is delivered; the library decides between the server's record and the push's own alert.
DeliveredContent deliverPush(const AnyValue& userInfo, std::chrono::milliseconds timeLimit);

} // namespace fexo::tool
