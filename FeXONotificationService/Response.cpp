#include <FeXONotificationService/Response.hpp>

#include <FeXONotificationService/ResponseFastDecoder.hpp>

namespace fexo {

bool Response::carriesNotification() const
{
    return data && ((data->text && !data->text->empty()) || (data->sender && !data->sender->empty()));
}

Response::Response(std::optional<Date> createdAt, std::optional<NotificationData> data,
                   std::optional<std::int64_t> errorCode, std::optional<std::string> errorMessage,
                   std::optional<std::string> id, std::optional<bool> isRead)
    : data(std::move(data)), id(std::move(id)), isRead(isRead), createdAt_(createdAt), errorCode_(errorCode),
      errorMessage_(std::move(errorMessage))
{
}

void to_json(nlohmann::json& json, const Response& value)
{
    json = nlohmann::json::object();
    coding::encodeIfPresent(json, "createdAt", value.createdAt_);
    coding::encodeIfPresent(json, "data", value.data);
    coding::encodeIfPresent(json, "errorCode", value.errorCode_);
    coding::encodeIfPresent(json, "errorMessage", value.errorMessage_);
    coding::encodeIfPresent(json, "id", value.id);
    coding::encodeIfPresent(json, "isRead", value.isRead);
}

void from_json(const nlohmann::json& json, Response& value)
{
    coding::requireObject(json);
    coding::decodeIfPresent(json, "createdAt", value.createdAt_);
    coding::decodeIfPresent(json, "data", value.data);
    coding::decodeIfPresent(json, "errorCode", value.errorCode_);
    coding::decodeIfPresent(json, "errorMessage", value.errorMessage_);
    coding::decodeIfPresent(json, "id", value.id);
    coding::decodeIfPresent(json, "isRead", value.isRead);
}

template <>
Response JSONDecoder::decode<Response>(std::string_view data) const
{
    Response value;
    if (fastDecode(data, value)) return value;
    return fullyDecoded<Response>(data);
}

} // namespace fexo
