#pragma once

#include <FeXOPlatform/URLError.hpp>
#include <FeXOPlatform/URLRequest.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace fexo {

// Internal. One task of a URLSession and its curl easy handle: the options it is sent with,
// the callbacks that collect its answer, and the next hop of a redirect it follows. Made on
// the thread that resumes the task; after the hand-over only the session thread touches it,
// and curl's callbacks run there too, inside curl_multi_perform.
struct URLSessionTransfer {
    using Clock = std::chrono::steady_clock;

    URLSessionTransfer(URLRequest request, URLSession::CompletionHandler completion);
    ~URLSessionTransfer();
    URLSessionTransfer(const URLSessionTransfer&) = delete;
    URLSessionTransfer& operator=(const URLSessionTransfer&) = delete;

    // Makes the easy handle and sets every option. Nothing when the transfer can start;
    // otherwise the code it fails with: badURL for a header field that cannot be sent as it
    // stands, unknown when curl refuses an option or memory runs out.
    std::optional<URLError::Code> configure(const URLSessionConfiguration& configuration);

    // The absolute target of a redirect answer that the session follows from `currentURL`:
    // a 301, 302, 303, 307 or 308 whose Location is of the same origin. Nothing otherwise.
    std::optional<std::string> sameOriginRedirect(const std::string& currentURL) const;
    // Sets the request up again for `target`, the method as the answer's status asks, and
    // forgets what the last answer brought. The handle must be out of the multi handle.
    bool followRedirect(const std::string& target, long status);

    void touch() { lastActivity = Clock::now(); }
    // The earlier of the idle and the total deadline.
    Clock::time_point deadline() const { return std::min(lastActivity + idleLimit, resourceDeadline); }

    URLRequest request;
    URLSession::CompletionHandler completion;
    CURL* easy = nullptr;
    std::string origin;    // the per-origin admission's key
    bool admitted = false; // in the multi handle; otherwise waiting for a slot of its origin
    int redirectsFollowed = 0;
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers{nullptr, &curl_slist_free_all};
    std::string body; // outlives the transfer: curl does not copy CURLOPT_POSTFIELDS
    std::string data;
    std::size_t maximumBodyLength = 0;
    HTTPHeaderFields responseHeaders;
    bool bodyTooLong = false;
    bool outOfMemory = false;
    curl_off_t lastDown = 0;
    curl_off_t lastUp = 0;
    const Clock::time_point resumedAt = Clock::now();
    Clock::time_point lastActivity = resumedAt;
    Clock::duration idleLimit{};
    Clock::time_point resourceDeadline = Clock::time_point::max();
    char errorBuffer[CURL_ERROR_SIZE] = {};
};

} // namespace fexo
