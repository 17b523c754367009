#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/JSONCoding.hpp>

#include <optional>
#include <string>

namespace fexo {

// The text of a notification and who sent it; the "data" object of a notification record.
struct FEXO_EXPORT NotificationData {
    std::optional<std::string> text;   // "text"
    std::optional<std::string> sender; // "sender"

    NotificationData(std::optional<std::string> text = std::nullopt, std::optional<std::string> sender = std::nullopt)
        : text(std::move(text)), sender(std::move(sender))
    {
    }

    bool operator==(const NotificationData&) const = default;
};

// Strict JSON mapping: throws DecodingError / EncodingError (see FeXOPlatform/JSONCoding.hpp).
FEXO_EXPORT void to_json(nlohmann::json& json, const NotificationData& value);
FEXO_EXPORT void from_json(const nlohmann::json& json, NotificationData& value);

} // namespace fexo
