#include <FeXONotificationService/NetworkingService.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <utility>

namespace fexo {

void NetworkingService::send(const RequestProviding& request, TransferCompletion completion) const
{
    // The task is not kept: the session holds it until its completion has run.
    URLSession::shared().dataTask(request.urlRequest(), std::move(completion)).resume();
}

} // namespace fexo
