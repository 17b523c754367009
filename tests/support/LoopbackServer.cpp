#include <support/LoopbackServer.hpp>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace fexo::test {

LoopbackServer::LoopbackServer() : LoopbackServer(Options{})
{
}

LoopbackServer::LoopbackServer(const Options& options)
    : server_(options.tls ? std::make_unique<httplib::SSLServer>(options.tls->certificateFile.c_str(),
                                                                 options.tls->privateKeyFile.c_str())
                          : std::make_unique<httplib::Server>()),
      tls_(options.tls != nullptr), recordRequests_(options.recordRequests)
{
    if (!server_->is_valid()) throw std::runtime_error("TLS server could not load its certificate or key");
    server_->set_tcp_nodelay(true);
    server_->set_keep_alive_max_count(1000000);
    if (options.workers != 0) {
        server_->new_task_queue = [workers = options.workers] { return new httplib::ThreadPool(workers); };
    }
    auto route = [this](const httplib::Request& request, httplib::Response& response) {
        Handler handler;
        bool close = false;
        {
            std::lock_guard lock(mutex_);
            if (recordRequests_) requests_.push_back(request);
            handler = handler_;
            close = closeConnections_;
        }
        if (handler) handler(request, response);
        if (close) response.set_header("Connection", "close");
    };
    server_->Get(".*", route).Post(".*", route).Put(".*", route).Delete(".*", route).Patch(".*", route);
    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ <= 0) throw std::runtime_error("loopback server could not bind");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // The socket already listens; waiting for the accept loop keeps stop() from missing it.
    while (!server_->is_running()) std::this_thread::yield();
}

LoopbackServer::~LoopbackServer()
{
    server_->stop();
    thread_.join();
}

std::string LoopbackServer::baseURL() const
{
    return std::string(tls_ ? "https" : "http") + "://127.0.0.1:" + std::to_string(port_);
}

void LoopbackServer::setHandler(Handler handler)
{
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
}

void LoopbackServer::closeConnectionsAfterEachAnswer()
{
    std::lock_guard lock(mutex_);
    closeConnections_ = true;
}

std::vector<httplib::Request> LoopbackServer::requests() const
{
    std::lock_guard lock(mutex_);
    return requests_;
}

int unusedLoopbackPort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("cannot bind on 127.0.0.1");
    ::close(fd); // never listened: connecting is refused
    return ntohs(address.sin_port);
}

} // namespace fexo::test
