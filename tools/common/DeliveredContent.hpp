#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace fexo::tool {

// The largest push taken, in bytes of its JSON text: `fexo handle-push` and the agent refuse a
// larger one before parsing it (a push's user-info is a few kilobytes at most), which bounds
// their memory whatever arrives.
inline constexpr std::size_t maximumPushBytes = 64 * 1024;

// What an extension finally hands to the system for one push.
struct DeliveredContent {
    std::string title;
    std::string body;
    bool rewritten = false; // true when the content is the server's record
    // The stored record the content came from, when it is the server's; else nothing.
    std::optional<std::string> id;

    bool operator==(const DeliveredContent&) const = default;
};

// The line an extension prints last: {"title":…,"body":…,"rewritten":…,"id":…}, "id" null when
// there is none.
std::string deliveredContentJSON(const DeliveredContent& content);

// The content an extension printed: its last non-empty line of `output`, an object with a string
// "title", a string "body", a boolean "rewritten" and, optionally, "id" as a string or null;
// nothing when that line is not one.
std::optional<DeliveredContent> printedContent(std::string_view output);

} // namespace fexo::tool
