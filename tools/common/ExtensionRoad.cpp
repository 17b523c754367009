#include <common/ExtensionRoad.hpp>

#include <memory>

namespace fexo::tool {

FeXONotificationExtensionHandler::Delivery deliverPush(const AnyValue& userInfo, std::chrono::milliseconds timeLimit)
{
    const UNNotificationRequest request("fexo-handle-push", std::make_shared<UNNotificationContent>("", "", userInfo));
    return FeXONotificationExtensionHandler().deliver(request, timeLimit);
}

DeliveredContent shownContent(const FeXONotificationExtensionHandler::Delivery& delivery)
{
    return {delivery.content->title(), delivery.content->body(), delivery.rewritten,
            delivery.rewritten ? delivery.recordId : std::nullopt};
}

} // namespace fexo::tool
