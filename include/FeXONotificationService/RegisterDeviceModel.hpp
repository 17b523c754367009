#pragma once

#include <FeXONotificationService/ErrorModel.hpp>
#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/JSONCoding.hpp>

#include <optional>
#include <string>
#include <vector>

namespace fexo {

// The server's answer to a device registration: a general "errorMessage" and a list of
// per-field "errors", both optional. A decoded answer only means the body was well-formed;
// host apps receive it as an opaque value and read it by encoding it to JSON.
class FEXO_EXPORT RegisterDeviceModel {
public:
    RegisterDeviceModel() = default;
    bool operator==(const RegisterDeviceModel&) const = default;

private:
    friend FEXO_EXPORT void to_json(nlohmann::json& json, const RegisterDeviceModel& value);
    friend FEXO_EXPORT void from_json(const nlohmann::json& json, RegisterDeviceModel& value);

    std::optional<std::string> errorMessage_;       // "errorMessage"
    std::optional<std::vector<ErrorModel>> errors_; // "errors": an empty array stays a present, empty list
};

FEXO_EXPORT void to_json(nlohmann::json& json, const RegisterDeviceModel& value);
FEXO_EXPORT void from_json(const nlohmann::json& json, RegisterDeviceModel& value);

} // namespace fexo
