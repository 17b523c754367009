#pragma once

#include <cstdint>

namespace fexo {

// How many records the store holds, and how many of them have an isRead that is not true.
struct NotificationCounts {
    std::uint64_t total = 0;
    std::uint64_t unread = 0;
    bool operator==(const NotificationCounts&) const = default;
};

} // namespace fexo
