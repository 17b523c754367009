// The push payload: any bytes either decode to a Payload or throw DecodingError. A decoded
// Payload must hold exactly the text found under each of its keys (the dotted ones included),
// checked against an independent reading of the same JSON.

#include "FuzzCheck.hpp"

#include <FeXONotificationService/Payload.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>

#include <optional>
#include <string>

namespace {

using Json = nlohmann::json;

// The text under `key`: nothing when absent or null; a present text must be a JSON string,
// which the successful decode has already promised.
std::optional<std::string> textAt(const Json& object, const char* key)
{
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    FUZZ_REQUIRE(it->is_string());
    return it->get<std::string>();
}

void checkAgainstJson(const fexo::Payload& payload, const Json& root)
{
    FUZZ_REQUIRE(root.is_object());
    FUZZ_REQUIRE(payload.recipientId == textAt(root, "recipientId"));
    FUZZ_REQUIRE(payload.registration_id == textAt(root, "registration_id"));
    FUZZ_REQUIRE(payload.google_c_sender_id == textAt(root, "google.c.sender.id"));
    FUZZ_REQUIRE(payload.gcm_message_id == textAt(root, "gcm.message_id"));
    FUZZ_REQUIRE(payload.google_c_fid == textAt(root, "google.c.fid"));

    const auto aps = root.find("aps");
    const bool apsPresent = aps != root.end() && !aps->is_null();
    FUZZ_REQUIRE(payload.aps.has_value() == apsPresent);
    if (!apsPresent) return;
    FUZZ_REQUIRE(aps->is_object());
    const auto alert = aps->find("alert");
    const bool alertPresent = alert != aps->end() && !alert->is_null();
    FUZZ_REQUIRE(payload.aps->alert.has_value() == alertPresent);
    if (!alertPresent) return;
    FUZZ_REQUIRE(alert->is_object());
    FUZZ_REQUIRE(payload.aps->alert->title == textAt(*alert, "title"));
    FUZZ_REQUIRE(payload.aps->alert->body == textAt(*alert, "body"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto input = fexo::fuzz::bytes(data, size);
    fexo::Payload payload;
    try {
        payload = fexo::JSONDecoder{}.decode<fexo::Payload>(input);
    } catch (const fexo::DecodingError&) {
        return 0;
    }
    checkAgainstJson(payload, Json::parse(input));
    return 0;
}
