#pragma once

#include <FeXOPlatform/URLRequest.hpp>

namespace fexo {

// Something that yields one complete request to the service's server.
class RequestProviding {
public:
    virtual ~RequestProviding();

    // A new, fully built request on every call; no error result (failures end the process).
    virtual URLRequest urlRequest() const = 0;

protected:
    RequestProviding() = default;
    RequestProviding(const RequestProviding&) = default;
    RequestProviding& operator=(const RequestProviding&) = default;
};

} // namespace fexo
