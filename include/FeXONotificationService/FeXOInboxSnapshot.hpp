#pragma once

#include <FeXONotificationService/NotificationCounts.hpp>
#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/Export.hpp>

#include <vector>

namespace fexo {

// The inbox at one moment: its counts and its newest records, read together in one read
// transaction, so that no change of another process falls between them (see
// FeXOService::inboxSnapshot()).
struct FEXO_EXPORT FeXOInboxSnapshot {
    NotificationCounts counts;
    // Newest createdAt first, as fetchNotifications() orders them.
    std::vector<Response> newest;
};

} // namespace fexo
