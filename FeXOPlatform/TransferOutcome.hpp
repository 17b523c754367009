#pragma once

#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/HTTPURLResponse.hpp>
#include <FeXOPlatform/URLError.hpp>

#include <curl/curl.h>

#include <optional>
#include <string>

namespace fexo {

struct URLSessionTransfer;

// Internal. What a finished transfer hands its completion: the body and the final answer's
// response, or a URLError and neither.
struct TransferOutcome {
    std::optional<std::string> data;
    std::optional<HTTPURLResponse> response;
    std::optional<Error> error;

    static TransferOutcome failure(URLError::Code code, std::optional<std::string> failingURL);

    // The outcome of a transfer that curl ended with `result`. A body past the limit and
    // memory that ran out are told apart from the network's failures. Takes the transfer's
    // body and header fields.
    static TransferOutcome of(URLSessionTransfer& transfer, CURLcode result);
};

} // namespace fexo
