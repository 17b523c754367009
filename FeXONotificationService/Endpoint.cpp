#include <FeXONotificationService/Endpoint.hpp>
#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/FatalError.hpp>
#include <FeXOPlatform/URL.hpp>

#include <utility>

namespace fexo {

Endpoint::Endpoint(Case kind, std::shared_ptr<const Payloadable> payload) : kind_(kind), payload_(std::move(payload))
{
}

Endpoint Endpoint::notificationContent(NotificationRequestInfo payload)
{
    return Endpoint(Case::notificationContent, std::make_shared<const NotificationRequestInfo>(std::move(payload)));
}

Endpoint Endpoint::registerNewDevice(DeviceInfo payload)
{
    return Endpoint(Case::registerNewDevice, std::make_shared<const DeviceInfo>(std::move(payload)));
}

const char* Endpoint::path() const
{
    switch (kind_) {
    case Case::notificationContent:
        return notificationContentPath;
    case Case::registerNewDevice:
        return registerNewDevicePath;
    }
    return "";
}

URLRequest Endpoint::urlRequest() const
{
    const ServiceConfiguration& configuration = sharedConfiguration();
    std::optional<URL> url = URL::fromString(configuration.baseURL + path());
    // A base URL that cannot form a URL is a mistake of the embedding application, not a
    // condition to report: there is deliberately no error result and no fallback.
    if (!url) fatalError("Unexpectedly found nil while unwrapping an Optional value");

    URLRequest request(std::move(*url), URLRequest::CachePolicy::reloadIgnoringLocalAndRemoteCacheData, 60.0);
    request.setAllHTTPHeaderFields({
        {"Content-Type", "application/json"},
        {"client_secret", configuration.clientSecret},
        {"client_id", configuration.clientId},
    });
    request.setHTTPMethod("POST");
    request.setHTTPBody(payload_->payload());
    return request;
}

} // namespace fexo
