#pragma once

#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/Export.hpp>

#include <string>
#include <vector>

namespace fexo {

// One page of the stored records, newest createdAt first (see FeXOService::fetchNotifications()).
struct FEXO_EXPORT NotificationPage {
    std::vector<Response> records;
    // The cursor text of the next page, to pass back as `after`; empty at the end.
    std::string next;
};

} // namespace fexo
