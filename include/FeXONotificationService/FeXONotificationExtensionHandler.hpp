#pragma once

#include <FeXONotificationService/DataRepository.hpp>
#include <FeXONotificationService/Networking.hpp>
#include <FeXONotificationService/NotificationContentProvider.hpp>
#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/UNMutableNotificationContent.hpp>
#include <FeXOPlatform/UNNotificationRequest.hpp>

#include <functional>
#include <memory>

namespace fexo {

// The notification extension's entry: call handleNotification for every push that arrives.
//
// A value: creating one reads no file and opens nothing. Each call works on its own copy of
// the handler, so the handler may be dropped as soon as handleNotification returns.
class FEXO_EXPORT FeXONotificationExtensionHandler : public NotificationContentProvider {
public:
    // Receives the rewritten content, ready to be shown.
    using ContentHandler = std::function<void(std::shared_ptr<UNMutableNotificationContent> content)>;

    FeXONotificationExtensionHandler();
    // For tests and tools: a handler over the given collaborators.
    FeXONotificationExtensionHandler(DataRepository dataPersistence, std::shared_ptr<const Networking> network);
    FeXONotificationExtensionHandler(const FeXONotificationExtensionHandler& other);
    FeXONotificationExtensionHandler& operator=(const FeXONotificationExtensionHandler& other);
    ~FeXONotificationExtensionHandler() override;

    const Networking& network() const override;

    // Decodes the push's user-info (a failure is printed and the push goes on with empty
    // identifiers), asks the server for the notification's content, and returns at once.
    //
    // When the server's answer decodes, on the URL session's thread: the copy of the content
    // gets the answer's sender as title and its text as body (empty where absent), a copy of
    // the record is stored with a new id and the current date, and `contentHandler` is called
    // once with the content. When the request fails: the body becomes the error's description,
    // "Notifications Content Error" and the description are printed, and `contentHandler` is
    // never called; the extension's own time limit decides what is shown. When the content
    // cannot be copied as mutable content, nothing happens at all.
    void handleNotification(const UNNotificationRequest& request, ContentHandler contentHandler) const;

private:
    DataRepository dataPersistence_;
    std::shared_ptr<const Networking> network_;
};

} // namespace fexo
