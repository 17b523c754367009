#pragma once

#include <FeXONotificationService/RequestProviding.hpp>
#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/FatalError.hpp>
#include <FeXOPlatform/HTTPURLResponse.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/Result.hpp>

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace fexo {

// Sends a request to the server and decodes the answer's body as a record.
class Networking {
public:
    using TransferCompletion = std::function<void(std::optional<std::string> data,
                                                  std::optional<HTTPURLResponse> response, std::optional<Error> error)>;

    virtual ~Networking();

    // Builds the request once and starts one transfer of it; returns at once. `completion`
    // runs once, later, on the transport's callback thread (for NetworkingService the shared
    // URL session's thread), never inside this call.
    virtual void send(const RequestProviding& request, TransferCompletion completion) const = 0;

    // Sends the request and calls `completion` once, on the transport's callback thread (no
    // hop to any other thread): failure with the transport error as it came; else success
    // with the whole body decoded as one T by a new JSONDecoder, or failure with the
    // DecodingError. The HTTP status and headers are never looked at. An answer with neither
    // error nor body ends the process and `completion` is not called.
    template <class T>
    void request(const RequestProviding& request, std::function<void(Result<T>)> completion) const
    {
        send(request, [completion = std::move(completion)](std::optional<std::string> data,
                                                           std::optional<HTTPURLResponse>, std::optional<Error> error) {
            if (error) {
                completion(Result<T>::failure(std::move(*error)));
                return;
            }
            if (!data) fatalError("Unexpectedly found nil while unwrapping an Optional value");
            std::optional<Result<T>> outcome;
            try {
                outcome = Result<T>::success(JSONDecoder{}.decode<T>(*data));
            } catch (const DecodingError& decodingError) {
                outcome = Result<T>::failure(decodingError);
            }
            completion(std::move(*outcome));
        });
    }

protected:
    Networking() = default;
    Networking(const Networking&) = default;
    Networking& operator=(const Networking&) = default;
};

} // namespace fexo
