#pragma once

#include <FeXOPlatform/JSONCoding.hpp>

#include <optional>
#include <string>

namespace fexo {

// The user-info dictionary of a push, decoded (never encoded). Every field is optional; keys
// not named here are ignored. Only `recipientId` and `registration_id` are used further.
struct Payload {
    struct Aps {
        struct Alert {
            std::optional<std::string> title; // "title"
            std::optional<std::string> body;  // "body"
        };
        std::optional<Alert> alert; // "alert": an object; the short string form fails the decode
    };

    std::optional<std::string> recipientId;        // "recipientId"
    std::optional<std::string> registration_id;    // "registration_id"
    std::optional<Aps> aps;                        // "aps"
    std::optional<std::string> google_c_sender_id; // "google.c.sender.id"
    std::optional<std::string> gcm_message_id;     // "gcm.message_id"
    std::optional<std::string> google_c_fid;       // "google.c.fid"
};

void from_json(const nlohmann::json& json, Payload& value);
void from_json(const nlohmann::json& json, Payload::Aps& value);
void from_json(const nlohmann::json& json, Payload::Aps::Alert& value);

} // namespace fexo
