#pragma once

#include <FeXONotificationService/NetworkingService.hpp>
#include <FeXONotificationService/NotificationContentProvider.hpp>
#include <FeXONotificationService/RegisterDeviceProvider.hpp>

#include <memory>

namespace fexo {

// The server's two operations over one network. A value: copies share the network, which
// is immutable, so a copy behaves exactly as its original.
class PushNotificationProvider : public RegisterDeviceProvider, public NotificationContentProvider {
public:
    explicit PushNotificationProvider(std::shared_ptr<const Networking> network = std::make_shared<NetworkingService>());

    const Networking& network() const override { return *network_; }

private:
    std::shared_ptr<const Networking> network_;
};

} // namespace fexo
