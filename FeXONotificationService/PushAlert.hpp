#pragma once

#include <FeXOPlatform/AnyValue.hpp>

#include <string>

namespace fexo {

// The alert a push carries for the system to show when no extension rewrites it: "aps"."alert"
// as an object's "title" and "body", or as the body when it is text. Parts that are absent or
// of another kind are empty; nothing about the push can fail here.
struct PushAlert {
    std::string title;
    std::string body;

    static PushAlert of(const AnyValue& userInfo);
};

} // namespace fexo
