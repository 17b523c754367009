#include <FeXONotificationService/Endpoint.hpp>
#include <FeXONotificationService/RegisterDeviceProvider.hpp>

#include <utility>

namespace fexo {

RegisterDeviceProvider::~RegisterDeviceProvider() = default;

void RegisterDeviceProvider::registerDevice(DeviceInfo deviceInfo,
                                            std::function<void(Result<RegisterDeviceModel>)> completion) const
{
    network().request<RegisterDeviceModel>(Endpoint::registerNewDevice(std::move(deviceInfo)), std::move(completion));
}

} // namespace fexo
