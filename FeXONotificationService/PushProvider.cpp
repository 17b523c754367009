#include <FeXONotificationService/PushProvider.hpp>

namespace fexo {

void to_json(nlohmann::json& json, PushProvider value)
{
    json = rawValue(value);
}

void from_json(const nlohmann::json& json, PushProvider& value)
{
    std::int64_t raw = 0;
    coding::decodeValue(json, raw);
    const auto provider = pushProviderFromRawValue(raw);
    if (!provider) {
        throw DecodingError::dataCorrupted("Cannot initialize PushProvider from invalid Int64 value " +
                                           std::to_string(raw));
    }
    value = *provider;
}

} // namespace fexo
