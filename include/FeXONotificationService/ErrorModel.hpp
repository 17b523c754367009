#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/JSONCoding.hpp>

#include <optional>
#include <string>

namespace fexo {

// One rejected input field of a device registration: {"field", "errorMessage"}, both
// optional. Host apps receive it as an opaque value that they can encode to JSON.
class FEXO_EXPORT ErrorModel {
public:
    ErrorModel() = default;
    bool operator==(const ErrorModel&) const = default;

private:
    friend FEXO_EXPORT void to_json(nlohmann::json& json, const ErrorModel& value);
    friend FEXO_EXPORT void from_json(const nlohmann::json& json, ErrorModel& value);

    std::optional<std::string> field_;        // "field": the request field that was rejected
    std::optional<std::string> errorMessage_; // "errorMessage": why
};

FEXO_EXPORT void to_json(nlohmann::json& json, const ErrorModel& value);
FEXO_EXPORT void from_json(const nlohmann::json& json, ErrorModel& value);

} // namespace fexo
