#include <FeXONotificationService/NotificationObservation.hpp>

#include <FeXOPlatform/StoreObserver.hpp>

#include <utility>

namespace fexo {

NotificationObservation::NotificationObservation() = default;

NotificationObservation::NotificationObservation(std::uint64_t token) : token_(token)
{
}

NotificationObservation::NotificationObservation(std::string failure) : failure_(std::move(failure))
{
}

NotificationObservation::~NotificationObservation()
{
    cancel();
}

NotificationObservation::NotificationObservation(NotificationObservation&& other) noexcept
    : token_(std::exchange(other.token_, 0)), failure_(std::move(other.failure_))
{
}

NotificationObservation& NotificationObservation::operator=(NotificationObservation&& other) noexcept
{
    if (this != &other) {
        cancel();
        token_ = std::exchange(other.token_, 0);
        failure_ = std::move(other.failure_);
    }
    return *this;
}

void NotificationObservation::cancel()
{
    StoreObserver::remove(std::exchange(token_, 0));
}

NotificationObservation::operator bool() const
{
    return token_ != 0;
}

} // namespace fexo
