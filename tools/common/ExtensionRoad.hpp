#pragma once

#include <FeXOPlatform/AnyValue.hpp>

#include <chrono>
#include <string>

namespace fexo::tool {

// What an extension finally hands to the system for one push.
struct DeliveredContent {
    std::string title;
    std::string body;
    bool rewritten = false; // true when the library's content handler delivered it
};

// Runs the extension's road for one push, as an extension process would: builds the
// notification request whose title and body are the push's "aps.alert" (an object's "title"
// and "body", or the alert itself when it is text), hands it to the extension handler, and
// waits for the library's content handler. When the library will not call it (the request
// failed, or the content could not be copied), the original title and body are delivered as
// soon as the library has nothing left in flight, or at `timeLimit`, whichever comes first.
// Exactly one content is delivered.
DeliveredContent runExtensionRoad(const AnyValue& userInfo, std::chrono::milliseconds timeLimit);

// The line `fexo handle-push` prints last: {"title":…,"body":…,"rewritten":…}.
std::string deliveredContentJSON(const DeliveredContent& content);

} // namespace fexo::tool
