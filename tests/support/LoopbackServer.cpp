#include <support/LoopbackServer.hpp>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace fexo::test {

std::optional<std::string> RecordedRequest::header(const std::string& name) const
{
    auto lower = [](std::string s) {
        std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
        return s;
    };
    for (const auto& [key, value] : headers)
        if (lower(key) == lower(name)) return value;
    return std::nullopt;
}

LoopbackServer::LoopbackServer() : server_(std::make_unique<httplib::Server>())
{
    start();
}

LoopbackServer::LoopbackServer(const TLS& tls)
    : server_(std::make_unique<httplib::SSLServer>(tls.certificateFile.c_str(), tls.privateKeyFile.c_str())), tls_(true)
{
    if (!server_->is_valid()) throw std::runtime_error("TLS server could not load its certificate or key");
    start();
}

void LoopbackServer::start()
{
    server_->set_tcp_nodelay(true);
    server_->set_keep_alive_max_count(100000);
    auto route = [this](const httplib::Request& request, httplib::Response& response) {
        Handler handler;
        bool close = false;
        {
            std::lock_guard lock(mutex_);
            RecordedRequest recorded{request.method, request.path, {}, request.body};
            for (const auto& [name, value] : request.headers) {
                // cpp-httplib adds these itself; they never came over the wire.
                if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT")
                    continue;
                recorded.headers.emplace_back(name, value);
            }
            requests_.push_back(std::move(recorded));
            handler = handler_;
            close = closeConnections_;
        }
        if (handler) handler(request, response);
        if (close) response.set_header("Connection", "close");
    };
    server_->Get(".*", route);
    server_->Post(".*", route);
    server_->Put(".*", route);
    server_->Delete(".*", route);
    server_->Patch(".*", route);
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

std::vector<RecordedRequest> LoopbackServer::requests() const
{
    std::lock_guard lock(mutex_);
    return requests_;
}

int unusedLoopbackPort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) throw std::runtime_error("socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        ::close(fd);
        throw std::runtime_error("bind");
    }
    ::close(fd); // never listened: connecting is refused
    return ntohs(address.sin_port);
}

} // namespace fexo::test
