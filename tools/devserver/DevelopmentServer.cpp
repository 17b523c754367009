#include <devserver/DevelopmentServer.hpp>

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include <common/SecretMask.hpp>
#include <devserver/DevelopmentStore.hpp>
#include <devserver/JSONAnswer.hpp>
#include <devserver/ServiceRoutes.hpp>

#include <httplib.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace fexo::tool {

using Json = nlohmann::json;

struct DevelopmentServer::Impl {
    explicit Impl(DevelopmentServerOptions options) : options(std::move(options)) { }

    void route(httplib::Server& server);
    void record(const httplib::Request& request, const httplib::Response& response);

    const DevelopmentServerOptions options;
    std::unique_ptr<DevelopmentStore> store;
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    std::atomic<bool> listenEnded{false};
    int port = 0;

    mutable std::mutex logMutex;
    std::deque<Exchange> log;
};

void DevelopmentServer::Impl::route(httplib::Server& http)
{
    using HandlerResponse = httplib::Server::HandlerResponse;

    http.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        const bool accepted = request.has_header("client_id") && request.has_header("client_secret") &&
                              request.get_header_value("client_id") == options.clientId &&
                              request.get_header_value("client_secret") == options.clientSecret;
        if (accepted) return HandlerResponse::Unhandled;
        answerJSON(response, 401, Json{{"errorMessage", "Invalid client credentials"}});
        return HandlerResponse::Handled;
    });

    addServiceRoutes(http, *store);

    // Refusals of the HTTP layer itself (unknown path, oversized body, ...) get a JSON body too;
    // answers that already carry one keep it.
    http.set_error_handler(
        httplib::Server::HandlerWithResponse([](const httplib::Request&, httplib::Response& response) {
            if (!response.body.empty()) return HandlerResponse::Unhandled;
            answerJSON(response, response.status, Json{{"errorMessage", reasonPhrase(response.status)}});
            return HandlerResponse::Handled;
        }));
    http.set_exception_handler([](const httplib::Request&, httplib::Response& response, std::exception_ptr error) {
        std::string message = "Internal server error";
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& exception) {
            message += std::string(": ") + exception.what();
        } catch (...) {
        }
        answerJSON(response, 500, Json{{"errorMessage", message}});
    });
    // Recorded before the answer is written, so a client that has its answer finds the
    // exchange in the log already.
    http.set_post_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (options.closeConnectionsAfterEachAnswer) response.set_header("Connection", "close");
        record(request, response);
    });
}

void DevelopmentServer::Impl::record(const httplib::Request& request, const httplib::Response& response)
{
    Exchange exchange{request.method, request.path, {}, request.body, response.status, response.body};
    for (const char* name : {"Content-Type", "client_id"}) {
        if (request.has_header(name)) exchange.requestHeaders[name] = request.get_header_value(name);
    }
    if (request.has_header("client_secret")) {
        exchange.requestHeaders["client_secret"] = maskedSecret(request.get_header_value("client_secret"));
    }
    if (options.exchangeObserver) options.exchangeObserver(exchange);

    const std::lock_guard lock(logMutex);
    log.push_back(std::move(exchange));
    while (log.size() > options.exchangeLogLimit) log.pop_front();
}

DevelopmentServer::DevelopmentServer(DevelopmentServerOptions options)
    : impl_(std::make_unique<Impl>(std::move(options)))
{
}

DevelopmentServer::~DevelopmentServer()
{
    stop();
}

int DevelopmentServer::start()
{
    if (impl_->thread.joinable()) throw std::logic_error("the development server is already running");
    if (!impl_->store) impl_->store = std::make_unique<DevelopmentStore>(impl_->options.dataDirectory);

    auto server = std::make_unique<httplib::Server>();
    server->set_tcp_nodelay(true);
    server->set_keep_alive_max_count(1000);
    impl_->route(*server);

    // The port is this server's alone: cpp-httplib's default also sets SO_REUSEPORT, with which
    // a second server on a busy port starts and takes every other request.
    server->set_socket_options([](socket_t socket) {
        const int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    const auto& host = impl_->options.host;
    errno = 0;
    const int port = impl_->options.port == 0
                         ? server->bind_to_any_port(host)
                         : (server->bind_to_port(host, impl_->options.port) ? impl_->options.port : -1);
    if (port <= 0) {
        const int failure = errno;
        throw std::runtime_error("cannot listen on " + host + " port " + std::to_string(impl_->options.port) +
                                 (failure != 0 ? ": " + std::string(std::strerror(failure)) : std::string()));
    }
    impl_->port = port;
    impl_->server = std::move(server);
    impl_->listenEnded = false;
    impl_->thread = std::thread([impl = impl_.get()] {
        impl->server->listen_after_bind();
        impl->listenEnded = true;
    });
    // A stop() that comes before the accept loop has begun would be lost, so start() returns
    // only once the loop runs; this takes microseconds.
    while (!impl_->server->is_running() && !impl_->listenEnded) std::this_thread::yield();
    return port;
}

void DevelopmentServer::stop()
{
    if (!impl_->thread.joinable()) return;
    impl_->server->stop();
    impl_->thread.join();
}

int DevelopmentServer::port() const
{
    return impl_->port;
}

std::string DevelopmentServer::baseURL() const
{
    const auto& host = impl_->options.host;
    const bool ipv6 = host.find(':') != std::string::npos;
    return "http://" + (ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(impl_->port);
}

std::vector<Exchange> DevelopmentServer::exchanges() const
{
    const std::lock_guard lock(impl_->logMutex);
    return {impl_->log.begin(), impl_->log.end()};
}

} // namespace fexo::tool
