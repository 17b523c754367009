#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/UNMutableNotificationContent.hpp>
#include <FeXOPlatform/UNNotificationRequest.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace fexo {

// The notification extension's entry: call handleNotification, or deliver, for every push that
// arrives.
//
// A value: creating one reads no file and opens nothing. It holds its collaborators (the record
// repository and the network) by value; each call works on its own copy of them, so the handler
// may be dropped as soon as a call returns.
class FEXO_EXPORT FeXONotificationExtensionHandler {
public:
    // Receives the rewritten content, ready to be shown.
    using ContentHandler = std::function<void(std::shared_ptr<UNMutableNotificationContent> content)>;

    // What deliver() gives the extension to show for one push.
    struct Delivery {
        // The content to show; never null. The server's sender and text when `rewritten`, else
        // the push's own alert.
        std::shared_ptr<UNMutableNotificationContent> content;
        // True when the server's record was delivered in time and carries a notification
        // (Response::carriesNotification()).
        bool rewritten = false;
        // The id of the record stored for this push, when it was stored before deliver()
        // returned, whether or not it carries a notification; empty otherwise.
        std::optional<std::string> recordId;
    };

    FeXONotificationExtensionHandler();
    FeXONotificationExtensionHandler(const FeXONotificationExtensionHandler& other);
    FeXONotificationExtensionHandler& operator=(const FeXONotificationExtensionHandler& other);
    ~FeXONotificationExtensionHandler();

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

    // What every extension host needs around handleNotification: runs exactly its road (same
    // request, same stored record, same printed lines) and waits, on the calling thread, until
    // this push's own request has finished or `timeLimit` has passed, whichever comes first,
    // however many other requests of the process are in flight. Starts no thread.
    //
    // The content to show is the rewritten content when the server's record arrived in time and
    // carries a notification; otherwise the push's own alert ("aps"."alert" as an object's
    // "title" and "body", or as the body when it is text; empty where absent), on a copy of the
    // request's content: when the request failed, when the limit passed first, when the record
    // carries no notification (a server's refusal), or when the content cannot be copied.
    // An answer that arrives after the limit is still stored, on the URL session's thread, but
    // this call has already returned without its id.
    //
    // Called on the URL session's thread (from a completion), where no answer can arrive while
    // it waits, it returns the push's own alert at once; the request still goes out.
    Delivery deliver(const UNNotificationRequest& request, std::chrono::milliseconds timeLimit) const;

private:
    struct Collaborators;
    std::unique_ptr<Collaborators> collaborators_; // never null
};

} // namespace fexo
