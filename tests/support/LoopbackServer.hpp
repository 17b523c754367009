#pragma once

#include <httplib.h>

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace fexo::test {

// An HTTP (or HTTPS) server on 127.0.0.1 at an ephemeral port, running on its own thread
// from construction to destruction. Every request, whatever its method and path, is recorded
// and then answered by the current handler (200 with an empty body until one is set).
// Handlers run on the server's worker threads; a handler that blocks must be released
// before the server is destroyed. No answer waits on the client's delayed ACK (TCP_NODELAY),
// and a keep-alive connection serves a million requests before it is closed.
class LoopbackServer {
public:
    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    struct TLS {
        std::string certificateFile;
        std::string privateKeyFile;
    };

    struct Options {
        const TLS* tls = nullptr; // HTTPS with this certificate and key when set
        // Worker threads, 0 for cpp-httplib's default. An open keep-alive connection holds a
        // worker, so a server for many clients' connections at once needs more.
        std::size_t workers = 0;
        // Whether requests() keeps every request. Off for a server that answers without end (a
        // benchmark's), whose memory would otherwise grow with each request.
        bool recordRequests = true;
    };

    LoopbackServer();
    explicit LoopbackServer(const Options& options);
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    int port() const { return port_; }
    // "http://127.0.0.1:<port>" (https for a TLS server), without a trailing slash.
    std::string baseURL() const;

    void setHandler(Handler handler);
    // Answers carry "Connection: close" from now on. For clients that keep connections
    // beyond the server's life (the shared session): stopping otherwise waits for the server's
    // keep-alive time-out.
    void closeConnectionsAfterEachAnswer();
    // Every request so far, in arrival order (headers include the addresses cpp-httplib adds);
    // none when the server records no requests.
    std::vector<httplib::Request> requests() const;

private:
    std::unique_ptr<httplib::Server> server_;
    bool tls_ = false;
    bool recordRequests_ = true;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    Handler handler_;
    bool closeConnections_ = false;
    std::vector<httplib::Request> requests_;
};

// A port on 127.0.0.1 where nothing listens (bound once, then released).
int unusedLoopbackPort();

} // namespace fexo::test
