#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/JSONCoding.hpp>

#include <cstdint>
#include <optional>

namespace fexo {

// The push service a device receives its pushes through; written in JSON as the bare raw
// value. 0 is not a provider.
enum class PushProvider : std::int64_t {
    FCM = 1,
    APNS = 2,
    pushWoosh = 3,
};

constexpr std::int64_t rawValue(PushProvider provider)
{
    return static_cast<std::int64_t>(provider);
}

// The provider of a raw value: 1, 2 or 3; nothing for any other integer.
constexpr std::optional<PushProvider> pushProviderFromRawValue(std::int64_t raw)
{
    if (raw < 1 || raw > 3) return std::nullopt;
    return static_cast<PushProvider>(raw);
}

// JSON: an integer; decoding 0, a negative number or 4 and above is dataCorrupted.
FEXO_EXPORT void to_json(nlohmann::json& json, PushProvider value);
FEXO_EXPORT void from_json(const nlohmann::json& json, PushProvider& value);

} // namespace fexo
