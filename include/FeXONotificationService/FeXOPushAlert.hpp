#pragma once

#include <FeXOPlatform/AnyValue.hpp>
#include <FeXOPlatform/Export.hpp>

#include <string>

namespace fexo {

// The alert a push carries for the system to show when no extension rewrites it: "aps"."alert"
// as an object's "title" and "body", or as the body when it is text. Parts that are absent or
// of another kind are empty; nothing about the push can fail here. What deliver() shows when it
// does not show the server's record, and what a host that runs extensions in processes of its
// own shows when one of them fails. Any thread.
struct FEXO_EXPORT FeXOPushAlert {
    std::string title;
    std::string body;

    // `userInfo` is the push's user-info dictionary (anything else has no alert).
    static FeXOPushAlert of(const AnyValue& userInfo);

    bool operator==(const FeXOPushAlert&) const = default;
};

} // namespace fexo
