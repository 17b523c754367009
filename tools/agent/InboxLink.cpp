#include <agent/InboxLink.hpp>

#include <FeXONotificationService/FeXOConfigurationCheck.hpp>
#include <FeXOPlatform/NSException.hpp>

#include <iostream>

namespace fexo::agent {

std::unique_ptr<InboxLink> InboxLink::open()
{
    const auto check = FeXOConfigurationCheck::run();
    if (!check.isValid()) {
        std::cerr << "fexo-agent: no badge, withdrawal or mark-read: " << check.exceptionName << ": "
                  << check.exceptionReason << std::endl;
        return nullptr;
    }
    return std::unique_ptr<InboxLink>(new InboxLink());
}

void InboxLink::logFailure(const std::exception& failure)
{
    if (failureLogged_.exchange(true)) return;
    std::cerr << "fexo-agent: the inbox failed (" << failure.what() << "); further failures are not logged"
              << std::endl;
}

bool InboxLink::observe(std::function<void(NotificationCounts)> changed)
{
    std::lock_guard lock(mutex_);
    try {
        observation_ = service_.observeNotifications(std::move(changed));
    } catch (const NSException& failure) {
        logFailure(failure);
    }
    if (!observation_)
        std::cerr << "fexo-agent: the inbox cannot be observed (no inotify watch left?): no badge updates or "
                     "withdrawal"
                  << std::endl;
    return static_cast<bool>(observation_);
}

std::optional<std::uint64_t> InboxLink::unreadCount()
{
    std::lock_guard lock(mutex_);
    try {
        return service_.unreadCount();
    } catch (const NSException& failure) {
        logFailure(failure);
        return std::nullopt;
    }
}

std::optional<bool> InboxLink::carriesNotification(const std::string& id)
{
    std::lock_guard lock(mutex_);
    try {
        const auto record = service_.fetchNotification(id);
        return record && record->carriesNotification();
    } catch (const NSException& failure) {
        logFailure(failure);
        return std::nullopt;
    }
}

std::optional<bool> InboxLink::readOrGone(const std::string& id)
{
    std::lock_guard lock(mutex_);
    try {
        const auto record = service_.fetchNotification(id);
        return !record || record->isRead == true;
    } catch (const NSException& failure) {
        logFailure(failure);
        return std::nullopt;
    }
}

void InboxLink::markRead(const std::string& id)
{
    std::lock_guard lock(mutex_);
    try {
        // Only a stored record: marking one that is gone would print for nothing.
        if (service_.fetchNotification(id)) service_.markNotificationAsRead(id);
    } catch (const NSException& failure) {
        logFailure(failure);
    }
}

} // namespace fexo::agent
