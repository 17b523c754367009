#pragma once

#include <FeXONotificationService/Response.hpp>

#include <optional>
#include <string_view>
#include <vector>

namespace fexo {

// A store of notification records. Every operation is synchronous, runs on the caller's thread
// and returns after the store has been updated; none reports an error.
class DataPersistenceProtocol {
public:
    using Element = Response;

    virtual ~DataPersistenceProtocol();

    virtual void write(const Element& element) = 0;
    virtual std::vector<Element> fetchAllNotifications() = 0;
    virtual std::optional<Element> fetchNotification(std::string_view id) = 0;
    virtual void deleteAllNotifications() = 0;
    virtual void deleteNotification(std::string_view id) = 0;
    virtual void markNotificationAsRead(std::string_view id) = 0;
};

} // namespace fexo
