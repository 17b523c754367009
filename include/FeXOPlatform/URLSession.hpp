#pragma once

#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/HTTPURLResponse.hpp>
#include <FeXOPlatform/URLRequest.hpp>
#include <FeXOPlatform/URLSessionConfiguration.hpp>
#include <FeXOPlatform/URLSessionDataTask.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace fexo {

// HTTP(S) transfers over libcurl. Each session owns one background thread, started with its
// first task, that drives every transfer and runs every completion, one at a time.
//
// Behaviour of every transfer: one attempt, no cache, no cookies; keep-alive connections
// are reused (HTTP/2 multiplexing where the server offers it), at most
// maximumConnectionsPerHost at once per host; the request's timeoutInterval is an idle
// time-out and the configuration's timeoutIntervalForResource a total deadline; the decoded
// body is limited to the configuration's maximumBodyLength; TLS peers and host names are
// always verified; the environment's proxy settings (http_proxy, https_proxy, no_proxy) hold.
//
// Redirects (301, 302, 303, 307, 308) are followed only within the request's origin (scheme,
// host and port alike), so its header fields, credentials among them, never reach another
// origin. 301 and 302 turn a POST into a GET without body, 303 turns any method but HEAD into
// one, 307 and 308 repeat the request as it was. After 16 followed redirects the next one
// fails the task with URLError::httpTooManyRedirects (-1007). A redirect to another origin is
// not followed: its 3xx answer, body and all, is the task's answer.
//
// Failures of a task that are not the network's:
// - a header field that cannot be sent as it stands (an empty name, a name holding ':', a
//   name or value holding CR, LF or NUL) fails the task with URLError::badURL (-1000) before
//   anything is sent; it is never dropped or altered;
// - memory that runs out while a transfer is set up or its answer is read fails that task
//   with URLError::unknown (-1); it never escapes as an exception.
class FEXO_EXPORT URLSession {
public:
    // Called exactly once per started task, on the session's thread, never inside the call
    // that started the task. On success: the body (possibly empty) and the final answer's
    // response, no error. On failure: a URLError and neither data nor response. A completion
    // must not throw (the process ends) and should not block: it stalls every transfer.
    using CompletionHandler = std::function<void(std::optional<std::string> data,
                                                 std::optional<HTTPURLResponse> response, std::optional<Error> error)>;

    // The process-wide session. Its thread lives as long as the process; at exit it is
    // stopped before the TLS library is torn down, and tasks still in flight then are
    // dropped without their completions.
    static URLSession& shared();

    // Replaces the shared session's configuration. Only before its first task is resumed:
    // true when the configuration was taken, false (nothing changes) once the shared
    // session has started. Any thread.
    static bool setSharedConfiguration(URLSessionConfiguration configuration);

    // A session of its own. Destroying it cancels the tasks still in flight: each completes
    // with URLError cancelled on the session's thread before the destructor returns. It must
    // not be destroyed from one of its own completions.
    explicit URLSession(URLSessionConfiguration configuration);
    ~URLSession();
    URLSession(const URLSession&) = delete;
    URLSession& operator=(const URLSession&) = delete;

    // A task for the request; nothing is sent until it is resumed. Any thread.
    URLSessionDataTask dataTask(URLRequest request, CompletionHandler completion);

    // Waits until no started task is in flight (its completion has returned), at most `limit`.
    // True when the session is idle. Called from a completion it does not wait.
    bool waitUntilIdle(std::chrono::milliseconds limit);

    // True when called on the session's own thread, that is from inside one of its completions,
    // where waiting for another of its answers could never end. Any thread.
    bool isCurrentThread() const;

    // Connections opened so far by the session's transfers, for tests and benchmarks of reuse.
    std::uint64_t connectionsOpened() const;

    class Engine;

private:
    friend class URLSessionDataTask;
    struct SharedTag { };
    URLSession(URLSessionConfiguration configuration, SharedTag);

    std::shared_ptr<Engine> engine_;
};

} // namespace fexo
