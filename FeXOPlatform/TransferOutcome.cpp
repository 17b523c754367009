#include <FeXOPlatform/TransferOutcome.hpp>
#include <FeXOPlatform/URLError.hpp>
#include <FeXOPlatform/URLSessionTransfer.hpp>

#include <utility>

namespace fexo {

TransferOutcome TransferOutcome::failure(URLError::Code code, std::optional<std::string> failingURL)
{
    return {std::nullopt, std::nullopt, URLError(code, std::move(failingURL))};
}

TransferOutcome TransferOutcome::of(URLSessionTransfer& transfer, CURLcode result)
{
    CURL* e = transfer.easy;
    const char* effective = nullptr;
    curl_easy_getinfo(e, CURLINFO_EFFECTIVE_URL, &effective);
    // Without a redirect curl reports the request's own URL: no need to parse it again.
    std::optional<URL> finalURL;
    if (effective && transfer.request.url().absoluteString() == effective)
        finalURL = transfer.request.url();
    else if (effective)
        finalURL = URL::fromString(effective);
    const std::string failingURL = finalURL ? finalURL->absoluteString() : transfer.request.url().absoluteString();
    if (transfer.bodyTooLong) return failure(URLError::dataLengthExceedsMaximum, failingURL);
    if (transfer.outOfMemory) return failure(URLError::unknown, failingURL);

    long status = 0;
    curl_easy_getinfo(e, CURLINFO_RESPONSE_CODE, &status);
    if (result != CURLE_OK) {
        long osErrno = 0;
        long verifyResult = 0;
        const char* peer = nullptr;
        curl_easy_getinfo(e, CURLINFO_OS_ERRNO, &osErrno);
        curl_easy_getinfo(e, CURLINFO_SSL_VERIFYRESULT, &verifyResult);
        curl_easy_getinfo(e, CURLINFO_PRIMARY_IP, &peer);
        // Only http and https are allowed, so an "unsupported protocol" from a server that was
        // reached with no status line read is an answer that is not HTTP at all (curl takes it
        // for HTTP/0.9): a bad server response, not a bad URL.
        if (result == CURLE_UNSUPPORTED_PROTOCOL && status == 0 && peer && *peer) result = CURLE_WEIRD_SERVER_REPLY;
        return {std::nullopt, std::nullopt, URLError::fromCurl(result, failingURL, osErrno, verifyResult)};
    }
    if (status < 100) return failure(URLError::badServerResponse, failingURL);
    HTTPURLResponse response(finalURL.value_or(transfer.request.url()), static_cast<int>(status),
                             std::move(transfer.responseHeaders));
    return {std::move(transfer.data), std::move(response), std::nullopt};
}

} // namespace fexo
