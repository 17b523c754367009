#pragma once

#include <FeXONotificationService/DeviceInfo.hpp>
#include <FeXONotificationService/Networking.hpp>
#include <FeXONotificationService/RegisterDeviceModel.hpp>
#include <FeXOPlatform/Result.hpp>

#include <functional>

namespace fexo {

// Registers the device with the server through the adopter's network.
class RegisterDeviceProvider {
public:
    virtual ~RegisterDeviceProvider();

    virtual const Networking& network() const = 0;

    // Sends `deviceInfo` on the registerNewDevice endpoint and passes the outcome on untouched:
    // the decoded answer, or the transport or decoding error. Returns at once; `completion`
    // runs once on the network's callback thread (the shared URL session's thread for
    // NetworkingService), never inside this call.
    void registerDevice(DeviceInfo deviceInfo, std::function<void(Result<RegisterDeviceModel>)> completion) const;

protected:
    RegisterDeviceProvider() = default;
    RegisterDeviceProvider(const RegisterDeviceProvider&) = default;
    RegisterDeviceProvider& operator=(const RegisterDeviceProvider&) = default;
};

} // namespace fexo
