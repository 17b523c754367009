#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>

#include <FeXONotificationService/NetworkingService.hpp>
#include <FeXONotificationService/NotificationRequestInfo.hpp>
#include <FeXONotificationService/Payload.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXONotificationService/UserDefaultsDataStorage.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>
#include <FeXOPlatform/StandardOutput.hpp>
#include <FeXOPlatform/UUID.hpp>

namespace fexo {

FeXONotificationExtensionHandler::FeXONotificationExtensionHandler()
    : dataPersistence_(std::make_shared<UserDefaultsDataStorage>()), network_(std::make_shared<NetworkingService>())
{
}

FeXONotificationExtensionHandler::FeXONotificationExtensionHandler(DataRepository dataPersistence,
                                                                   std::shared_ptr<const Networking> network)
    : dataPersistence_(std::move(dataPersistence)), network_(std::move(network))
{
}

FeXONotificationExtensionHandler::FeXONotificationExtensionHandler(const FeXONotificationExtensionHandler& other) =
    default;
FeXONotificationExtensionHandler&
FeXONotificationExtensionHandler::operator=(const FeXONotificationExtensionHandler& other) = default;
FeXONotificationExtensionHandler::~FeXONotificationExtensionHandler() = default;

const Networking& FeXONotificationExtensionHandler::network() const
{
    return *network_;
}

void FeXONotificationExtensionHandler::handleNotification(const UNNotificationRequest& request,
                                                          ContentHandler contentHandler) const
{
    auto content = std::dynamic_pointer_cast<UNMutableNotificationContent>(request.content().mutableCopy());
    if (!content) return;

    std::optional<Payload> payload;
    try {
        const std::string json = JSONSerialization::data(content->userInfo());
        payload = JSONDecoder{}.decode<Payload>(json);
    } catch (const CocoaError& error) {
        printLine(error.description());
    } catch (const DecodingError& error) {
        printLine(error.description());
    }

    NotificationRequestInfo requestInfo(payload ? payload->recipientId.value_or("") : "",
                                        payload ? payload->registration_id.value_or("") : "");
    fetchNotificationContent(std::move(requestInfo),
                             [content = std::move(content), self = *this,
                              contentHandler = std::move(contentHandler)](Result<Response> result) mutable {
                                 if (result.isFailure()) {
                                     const std::string description = result.error().localizedDescription();
                                     content->setBody(description);
                                     printLine("Notifications Content Error" + description);
                                     return;
                                 }
                                 const Response& response = result.value();
                                 content->setTitle(response.data ? response.data->sender.value_or("") : "");
                                 content->setBody(response.data ? response.data->text.value_or("") : "");

                                 Response stored = response;
                                 stored.id = UUID().uuidString();
                                 ResponseAccess::createdAt(stored) = Date::now();
                                 self.dataPersistence_.write(stored);

                                 contentHandler(std::move(content));
                             });
}

} // namespace fexo
