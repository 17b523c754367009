#pragma once

#include <common/DeliveredContent.hpp>

#include <FeXOPlatform/AnyValue.hpp>

#include <chrono>
#include <string>

namespace fexo::tool {

// Runs the extension's road for one push, as an extension process would: builds the
// notification request whose title and body are `original` (originalContent() of the same
// push), hands it to the extension handler, and
// waits for the library's content handler. When the library will not call it (the request
// failed, or the content could not be copied), the original title and body are delivered as
// soon as the library has nothing left in flight, or at `timeLimit`, whichever comes first.
// Exactly one content is delivered.
DeliveredContent runExtensionRoad(const AnyValue& userInfo, const DeliveredContent& original,
                                  std::chrono::milliseconds timeLimit);

} // namespace fexo::tool
