#include <FeXONotificationService/PushNotificationProvider.hpp>

#include <utility>

namespace fexo {

PushNotificationProvider::PushNotificationProvider(std::shared_ptr<const Networking> network)
    : network_(std::move(network))
{
}

const Networking& PushNotificationProvider::network() const
{
    return *network_;
}

} // namespace fexo
