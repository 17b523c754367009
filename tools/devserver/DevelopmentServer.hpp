#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fexo::tool {

// One request and its answer as they went over the wire. The "client_secret" header is
// recorded masked, never in clear.
struct Exchange {
    std::string method;
    std::string path;
    // "Content-Type", "client_id" and "client_secret" (masked), when the request had them.
    std::map<std::string, std::string> requestHeaders;
    std::string requestBody;
    int status = 0;
    std::string responseBody;
};

struct DevelopmentServerOptions {
    std::string host = "127.0.0.1";
    int port = 8080; // 0 picks a free port
    // Where "devserver.sqlite" is kept (created when missing); without one the data lives in
    // memory and ends with the server.
    std::optional<std::filesystem::path> dataDirectory;
    // The only credentials accepted, compared with the "client_id" and "client_secret" headers.
    std::string clientId;
    std::string clientSecret;
    // Called once per answered request, on one of the server's worker threads, possibly on
    // several at once; it must not call stop().
    std::function<void(const Exchange&)> exchangeObserver;
    // How many of the latest exchanges exchanges() keeps.
    std::size_t exchangeLogLimit = 1000;
    // Answers carry "Connection: close". For a server that clients in its own process outlive
    // (the shared URL session keeps connections open): stop() otherwise waits for the
    // keep-alive time-out of every connection still open.
    bool closeConnectionsAfterEachAnswer = false;
};

// A stand-in for the service's server on this machine, for offline work, the demo and tests.
// Its routes are those of ServiceRoutes. Every request must carry the accepted "client_id" and
// "client_secret" headers, else 401 {"errorMessage":"Invalid client credentials"}; refusals of
// the HTTP layer itself (unknown path, ...) get a JSON body too.
//
// Threads: start() and stop() belong to the owning thread. Requests are served on a pool of
// worker threads; exchanges() may be called from any thread.
class DevelopmentServer {
public:
    explicit DevelopmentServer(DevelopmentServerOptions options);
    // Stops the server if it still runs.
    ~DevelopmentServer();
    DevelopmentServer(const DevelopmentServer&) = delete;
    DevelopmentServer& operator=(const DevelopmentServer&) = delete;

    // Opens the database, binds the address and serves on a thread of its own; returns the
    // bound port. Throws std::runtime_error when the database cannot be opened or the address
    // cannot be bound. Calling it on a running server is a programming error.
    int start();
    // Stops accepting and waits until the serving thread has finished. Idempotent.
    void stop();

    // The bound port, 0 before start().
    int port() const;
    // "http://HOST:PORT" of the bound address; valid after start().
    std::string baseURL() const;

    // The latest exchanges, oldest first, at most the configured limit.
    std::vector<Exchange> exchanges() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace fexo::tool
