#pragma once

#include <FeXONotificationService/NotificationData.hpp>
#include <FeXOPlatform/Date.hpp>
#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/JSONCoding.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fexo {

struct ResponseAccess;

// A delivered notification, in the one JSON form that the server sends and the store keeps.
// Every field is optional; an empty field is left out of the JSON.
//
// `data`, `id` and `isRead` are open to the host app. `createdAt`, `errorCode` and
// `errorMessage` can be given through the constructor and travel in the JSON and the store,
// but only the library reads them back.
class FEXO_EXPORT Response {
public:
    Response(std::optional<Date> createdAt = std::nullopt, std::optional<NotificationData> data = std::nullopt,
             std::optional<std::int64_t> errorCode = std::nullopt,
             std::optional<std::string> errorMessage = std::nullopt, std::optional<std::string> id = std::nullopt,
             std::optional<bool> isRead = std::nullopt);

    std::optional<NotificationData> data; // "data": the text and its sender
    std::optional<std::string> id;        // "id": also the suffix of the record's storage key
    std::optional<bool> isRead;           // "isRead": empty until the record is marked

    // Whether the record is a notification a user can be shown: `data` present with a text or a
    // sender that is not empty. A server's refusal ({"errorCode":404,...}) carries none; it is
    // stored like any record, but the inbox, the extension's delivery and the desktop agent
    // treat it as no notification. Reads only the public fields.
    bool carriesNotification() const;

    bool operator==(const Response&) const = default;

private:
    friend struct ResponseAccess;
    friend FEXO_EXPORT void to_json(nlohmann::json& json, const Response& value);
    friend FEXO_EXPORT void from_json(const nlohmann::json& json, Response& value);

    std::optional<Date> createdAt_;           // "createdAt": seconds since 2001-01-01 00:00:00 UTC
    std::optional<std::int64_t> errorCode_;   // "errorCode"
    std::optional<std::string> errorMessage_; // "errorMessage"
};

// Strict JSON mapping: throws DecodingError / EncodingError (see FeXOPlatform/JSONCoding.hpp).
FEXO_EXPORT void to_json(nlohmann::json& json, const Response& value);
FEXO_EXPORT void from_json(const nlohmann::json& json, Response& value);

// Decoding a Response is compiled in the library, where a quicker reader of well-formed records
// runs before the full decoder: the value, or the DecodingError with its path, is exactly the
// full decoder's. Any thread.
template <>
FEXO_EXPORT Response JSONDecoder::decode<Response>(std::string_view data) const;

} // namespace fexo
