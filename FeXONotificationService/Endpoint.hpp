#pragma once

#include <FeXONotificationService/DeviceInfo.hpp>
#include <FeXONotificationService/NotificationRequestInfo.hpp>
#include <FeXONotificationService/Payloadable.hpp>
#include <FeXONotificationService/RequestProviding.hpp>

#include <memory>
#include <string>

namespace fexo {

// One of the server's two operations, with the body to send. Immutable; the endpoint owns
// its own copy of the payload.
class Endpoint : public RequestProviding {
public:
    enum class Case {
        notificationContent,
        registerNewDevice
    };

    static constexpr const char* notificationContentPath = "/api/Notification/GetNotificationContent";
    static constexpr const char* registerNewDevicePath = "/api/Registration/RegisterNewDevice";

    static Endpoint notificationContent(NotificationRequestInfo payload);
    static Endpoint registerNewDevice(DeviceInfo payload);

    Case kind() const { return kind_; }
    // notificationContentPath or registerNewDevicePath.
    const char* path() const;
    const Payloadable& payload() const { return *payload_; }

    // POST to the configured base URL followed directly by path() (no slash added or
    // removed), cache policy reloadIgnoringLocalAndRemoteCacheData, timeout 60 s, exactly the
    // header fields "Content-Type", "client_secret" and "client_id", and the payload's JSON
    // as body (none when it cannot be encoded). Loads the configuration on first use in the
    // process, which may raise its exception. A base URL that does not form a URL with the
    // path ends the process. Any thread.
    URLRequest urlRequest() const override;

private:
    Endpoint(Case kind, std::shared_ptr<const Payloadable> payload);

    Case kind_;
    std::shared_ptr<const Payloadable> payload_;
};

} // namespace fexo
