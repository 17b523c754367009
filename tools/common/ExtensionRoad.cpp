#include <common/ExtensionRoad.hpp>

#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>

#include <memory>

namespace fexo::tool {

DeliveredContent deliverPush(const AnyValue& userInfo, std::chrono::milliseconds timeLimit)
{
    const UNNotificationRequest request("fexo-handle-push", std::make_shared<UNNotificationContent>("", "", userInfo));
    const auto delivery = FeXONotificationExtensionHandler().deliver(request, timeLimit);
    return {delivery.content->title(), delivery.content->body(), delivery.rewritten,
            delivery.rewritten ? delivery.recordId : std::nullopt};
}

} // namespace fexo::tool
