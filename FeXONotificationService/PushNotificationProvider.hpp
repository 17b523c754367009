#pragma once

#include <FeXONotificationService/NetworkingService.hpp>
#include <FeXONotificationService/RegisterDeviceProvider.hpp>

#include <memory>

namespace fexo {

// Device registration over one network; the host app's side of the server. (The extension
// fetches notification content through its own handler.) A value: copies share the network,
// which is immutable, so a copy behaves exactly as its original.
class PushNotificationProvider : public RegisterDeviceProvider {
public:
    explicit PushNotificationProvider(
        std::shared_ptr<const Networking> network = std::make_shared<NetworkingService>());

    // Out of line: the class's vtable then lives with its own source alone.
    const Networking& network() const override;

private:
    std::shared_ptr<const Networking> network_;
};

} // namespace fexo
