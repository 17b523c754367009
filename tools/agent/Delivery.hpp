#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace fexo::agent {

// The largest push the agent takes, in bytes of its JSON text; `fexo handle-push` refuses the
// same. Larger pushes are refused before anything is parsed, which bounds the agent's memory.
inline constexpr std::size_t maximumPushBytes = 64 * 1024;

// What one push finally shows: the extension's content, or the push's own alert.
struct Delivery {
    std::string title;
    std::string body;
    bool rewritten = false;
};

// The push's original alert: "aps.alert" as an object's "title" and "body", or as the body
// when it is text; empty strings where absent or of another kind.
Delivery originalDelivery(const nlohmann::json& userInfo);

// The content an extension printed: the last non-empty line of `output`, an object with a
// string "title", a string "body" and a boolean "rewritten"; nothing when that line is not one.
std::optional<Delivery> printedDelivery(std::string_view output);

// The line form, {"title":…,"body":…,"rewritten":…}, as `fexo handle-push` prints it.
std::string deliveryLine(const Delivery& delivery);

} // namespace fexo::agent
