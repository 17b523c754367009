// An app's inbox: the newest records page by page with the unread badge, then the counts again
// each time any process sharing the app group changes the records (the extension storing a push).
//
//   inbox PAGE_SIZE [CHANGES]
//
// Prints every page, then "watching" once the observation is in place, then one line per change
// until CHANGES changes were seen (default 1) or a minute passed without one.
#include <FeXONotificationService/FeXOService.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>

// What the observer thread hands to this one.
struct Changes {
    std::mutex mutex;
    std::condition_variable changed;
    fexo::NotificationCounts last;
    int seen = 0;
};

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3) {
        std::cerr << "usage: inbox PAGE_SIZE [CHANGES]\n";
        return 64;
    }
    const std::size_t pageSize = std::strtoul(argv[1], nullptr, 10);
    const int wanted = argc == 3 ? std::atoi(argv[2]) : 1;

    fexo::FeXOService service;
    std::string cursor; // empty: the first page
    do {
        fexo::Result<fexo::NotificationPage> page = service.fetchNotifications(pageSize, cursor);
        if (page.isFailure()) {
            std::cerr << "inbox: " << page.error().localizedDescription() << '\n';
            return 1;
        }
        for (const fexo::Response& record : page.value().records) {
            const std::string text = record.data ? record.data->text.value_or("") : "";
            std::cout << (record.isRead.value_or(false) ? "  " : "* ") << text << '\n';
        }
        cursor = page.value().next; // empty after the last page
    } while (!cursor.empty());
    std::cout << "unread: " << service.unreadCount() << '\n';

    // The callback runs on the observer thread: hand the counts over, as an app hands them to
    // its interface thread.
    auto changes = std::make_shared<Changes>();
    fexo::NotificationObservation observation =
        service.observeNotifications([changes](fexo::NotificationCounts counts) {
            std::lock_guard lock(changes->mutex);
            changes->last = counts;
            ++changes->seen;
            changes->changed.notify_one();
        });
    std::cout << "watching" << std::endl;
    for (int shown = 0; shown < wanted; ++shown) {
        std::unique_lock lock(changes->mutex);
        if (!changes->changed.wait_for(lock, std::chrono::minutes(1), [&] { return changes->seen > shown; })) return 1;
        shown = changes->seen - 1; // changes close together may come as one call
        std::cout << "total " << changes->last.total << ", unread " << changes->last.unread << std::endl;
    }
    service.markAllNotificationsAsRead();
    std::cout << "unread after marking all read: " << service.unreadCount() << '\n';
    return 0;
}
