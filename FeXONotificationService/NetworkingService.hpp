#pragma once

#include <FeXONotificationService/Networking.hpp>

namespace fexo {

// Networking over the process's shared URL session: one attempt per request, nothing added
// to or changed in the request. Stateless; completions run on the shared session's thread.
class NetworkingService : public Networking {
public:
    void send(const RequestProviding& request, TransferCompletion completion) const override;
};

} // namespace fexo
