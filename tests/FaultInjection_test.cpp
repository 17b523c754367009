// A seeded random run of several hundred requests against a loopback server that misbehaves on
// purpose. Each request's fault is chosen before it is sent, so its outcome is known: a URLError
// code, a DecodingError, or success with exactly the record that was answered. Every completion
// must run exactly once.

#include <FeXONotificationService/NetworkingService.hpp>
#include <FeXONotificationService/NotificationContentProvider.hpp>
#include <FeXONotificationService/Response.hpp>

#include <support/Configuration.hpp>
#include <support/LoopbackServer.hpp>
#include <support/TemporaryDirectory.hpp>

#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/URLError.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <random>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using fexo::URLError;

constexpr auto patience = 30s;

enum class Fault {
    refused,        // nothing listens on the port
    closedAtAccept, // the connection is closed before anything is read
    resetMidBody,   // headers and half the body, then a TCP reset
    stalled,        // the request is read, then nothing (or only the headers) ever comes
    truncated,      // the body ends before its Content-Length, or inside a chunk
    dripped,        // a valid record, one byte per write
    garbageBody,    // 200 with 1 MiB of random bytes as the body
    garbageAnswer,  // 1 MiB of random bytes in place of an HTTP answer
    validStatus,    // any status with a valid record as the body
    invalidStatus,  // any status with a body that is not a record
};
constexpr std::size_t faultKinds = 10;

const char* name(Fault fault)
{
    static constexpr std::array<const char*, faultKinds> names{
        "refused", "closedAtAccept", "resetMidBody", "stalled", "truncated",
        "dripped", "garbageBody",    "garbageAnswer", "validStatus", "invalidStatus"};
    return names[static_cast<std::size_t>(fault)];
}

// What one request is answered with, decided before it is sent.
struct Plan {
    Fault fault = Fault::validStatus;
    int status = 200;
    bool headersFirst = false; // stalled after the headers; truncated inside a chunk
    bool throughProvider = false;
    std::string body;          // the record or the invalid body
    fexo::Response record;     // what a successful decode must yield
};

std::string reasonPhrase(int status)
{
    return status < 200 ? "Info" : status < 400 ? "Fine" : "Trouble";
}

bool sendAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

int listenOnLoopback()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) throw std::runtime_error("socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, 128) != 0) {
        ::close(fd);
        throw std::runtime_error("bind/listen on 127.0.0.1");
    }
    return fd;
}

int portOf(int fd)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

// A raw HTTP/1.1 server on 127.0.0.1 that answers each request by its plan, found through the
// token "fault-<index>." in the request line or body. A second listener closes every connection
// as soon as it is accepted. Each connection gets a thread; all are joined on destruction.
class FaultServer {
public:
    explicit FaultServer(const std::vector<Plan>& plans) : plans_(plans)
    {
        if (::pipe2(stopPipe_, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
        listener_ = listenOnLoopback();
        closer_ = listenOnLoopback();
        acceptor_ = std::thread([this] { acceptLoop(); });
    }

    ~FaultServer()
    {
        ::close(stopPipe_[1]); // every poll below sees the read end become readable
        acceptor_.join();
        for (auto& worker : workers_) worker.join();
        ::close(listener_);
        ::close(closer_);
        ::close(stopPipe_[0]);
    }

    int port() const { return portOf(listener_); }
    int closingPort() const { return portOf(closer_); }

private:
    // Waits until `fd` is readable; false when the server stops or `limit` passes.
    bool waitReadable(int fd, std::chrono::milliseconds limit) const
    {
        pollfd fds[2] = {{fd, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
        if (::poll(fds, 2, static_cast<int>(limit.count())) <= 0) return false;
        return fds[1].revents == 0 && fds[0].revents != 0;
    }

    void acceptLoop()
    {
        for (;;) {
            pollfd fds[3] = {{listener_, POLLIN, 0}, {closer_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
            if (::poll(fds, 3, -1) < 0) continue;
            if (fds[2].revents) return;
            if (fds[1].revents) {
                const int fd = ::accept4(closer_, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd >= 0) ::close(fd);
            }
            if (fds[0].revents) {
                const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd < 0) continue;
                const int one = 1;
                ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
                workers_.emplace_back([this, fd] {
                    serve(fd);
                    ::close(fd);
                });
            }
        }
    }

    // Reads one whole request (head and Content-Length body); empty when the peer left.
    std::string readRequest(int fd) const
    {
        std::string request;
        std::size_t headEnd = std::string::npos;
        std::size_t wanted = 0;
        char buffer[16384];
        for (;;) {
            if (headEnd != std::string::npos && request.size() >= headEnd + 4 + wanted) return request;
            if (!waitReadable(fd, 10s)) return {};
            const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
            if (got <= 0) return {};
            request.append(buffer, static_cast<std::size_t>(got));
            if (headEnd == std::string::npos && (headEnd = request.find("\r\n\r\n")) != std::string::npos) {
                std::string head = request.substr(0, headEnd);
                for (char& c : head) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
                if (auto at = head.find("\r\ncontent-length:"); at != std::string::npos)
                    wanted = std::strtoul(head.c_str() + at + 17, nullptr, 10);
            }
        }
    }

    const Plan* planFor(const std::string& request) const
    {
        const auto at = request.find("fault-");
        if (at == std::string::npos) return nullptr;
        const std::size_t index = std::strtoul(request.c_str() + at + 6, nullptr, 10);
        return index < plans_.size() ? &plans_[index] : nullptr;
    }

    static std::string answer(int status, const std::string& body, bool withBody = true)
    {
        std::string text = "HTTP/1.1 " + std::to_string(status) + " " + reasonPhrase(status) + "\r\n";
        text += "Content-Type: application/json\r\n";
        if (withBody) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
        text += "\r\n";
        if (withBody) text += body;
        return text;
    }

    static std::string randomBytes(std::size_t count, unsigned seed)
    {
        std::mt19937 random(seed);
        std::string bytes(count, '\0');
        for (char& c : bytes) c = static_cast<char>(random() & 0xff);
        bytes[0] = '\xff'; // never the start of JSON or of a status line
        return bytes;
    }

    // Serves requests on one connection until a fault ends it or the peer leaves.
    void serve(int fd) const
    {
        for (;;) {
            const std::string request = readRequest(fd);
            if (request.empty()) return;
            const Plan* plan = planFor(request);
            if (!plan) {
                sendAll(fd, answer(404, "{}"));
                continue;
            }
            const std::string& body = plan->body;
            switch (plan->fault) {
            case Fault::refused:
            case Fault::closedAtAccept:
                return; // never reaches this listener
            case Fault::resetMidBody: {
                std::string text = answer(200, body);
                sendAll(fd, text.substr(0, text.size() - body.size() / 2));
                const linger reset{1, 0};
                ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
                return;
            }
            case Fault::stalled:
                if (plan->headersFirst) sendAll(fd, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"id\":");
                // Held open, silent, until the client gives up and closes.
                while (waitReadable(fd, 10s)) {
                    char sink[256];
                    if (::recv(fd, sink, sizeof sink, 0) <= 0) return;
                }
                return;
            case Fault::truncated:
                if (plan->headersFirst) {
                    sendAll(fd, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n40\r\n" + body.substr(0, 10));
                } else {
                    std::string text = answer(200, body);
                    text.insert(text.find("Content-Length: ") + 16, "1"); // ten times and more
                    sendAll(fd, text);
                }
                ::shutdown(fd, SHUT_WR);
                return;
            case Fault::dripped:
                for (char c : answer(200, body)) {
                    if (!sendAll(fd, std::string_view(&c, 1))) return;
                    std::this_thread::sleep_for(200us);
                }
                continue;
            case Fault::garbageBody:
                sendAll(fd, answer(200, randomBytes(1 << 20, static_cast<unsigned>(request.size()))));
                continue;
            case Fault::garbageAnswer:
                sendAll(fd, randomBytes(1 << 20, static_cast<unsigned>(request.size())));
                ::shutdown(fd, SHUT_WR);
                return;
            case Fault::validStatus:
            case Fault::invalidStatus:
                if (plan->status < 200) {
                    sendAll(fd, "HTTP/1.1 " + std::to_string(plan->status) + " Info\r\n\r\n" + answer(200, body));
                } else {
                    sendAll(fd, answer(plan->status, body, plan->status != 204 && plan->status != 304));
                }
                continue;
            }
        }
    }

    const std::vector<Plan>& plans_;
    int stopPipe_[2] = {-1, -1};
    int listener_ = -1;
    int closer_ = -1;
    std::thread acceptor_;
    std::vector<std::thread> workers_; // acceptor thread only, until it has been joined
};

// One request of the run, sent by URL so that a plan can point anywhere, with its own timeout.
class FaultRequest : public fexo::RequestProviding {
public:
    FaultRequest(std::string url, double timeout) : url_(std::move(url)), timeout_(timeout) {}

    fexo::URLRequest urlRequest() const override
    {
        auto url = fexo::URL::fromString(url_);
        if (!url) throw std::invalid_argument(url_);
        fexo::URLRequest request(*url, fexo::URLRequest::CachePolicy::reloadIgnoringLocalAndRemoteCacheData, timeout_);
        request.setHTTPMethod("POST");
        request.setValue("application/json", "Content-Type");
        request.setValue("identity", "Accept-Encoding");
        request.setHTTPBody("{}");
        return request;
    }

private:
    std::string url_;
    double timeout_;
};

struct ContentFetcher : fexo::NotificationContentProvider {
    fexo::NetworkingService service;
    const fexo::Networking& network() const override { return service; }
};

const std::vector<std::string> invalidBodies{
    "",
    "not json",
    "null",
    "[]",
    "[{\"id\":\"x\"}]",
    "\"text\"",
    "{\"id\":5}",
    "{\"isRead\":\"yes\"}",
    "{\"data\":{\"text\":true}}",
    "{\"createdAt\":\"yesterday\"}",
    "{\"id\":\"x\"",
    "{\"id\":\"x\"} trailing",
};

// Builds `count` plans from `seed`. Stalls cost their timeout each, so only a handful.
std::vector<Plan> makePlans(std::size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    // Weights per kind, in enum order.
    const std::array<int, faultKinds> weights{4, 4, 6, 1, 6, 4, 3, 3, 38, 31};
    std::discrete_distribution<int> pick(weights.begin(), weights.end());
    std::vector<Plan> plans(count);
    int stalls = 0;
    for (std::size_t i = 0; i < count; ++i) {
        Plan& plan = plans[i];
        plan.fault = static_cast<Fault>(pick(random));
        if (plan.fault == Fault::stalled && ++stalls > 6) plan.fault = Fault::validStatus;
        plan.headersFirst = below(2) == 0;
        // The library's own endpoint cannot reach another port and waits a minute on silence.
        const bool providerCanCarry = plan.fault != Fault::refused && plan.fault != Fault::closedAtAccept &&
                                      plan.fault != Fault::stalled;
        plan.throughProvider = providerCanCarry && below(3) == 0;
        do {
            plan.status = 100 + below(500);
        } while (plan.status == 101 || (plan.status > 103 && plan.status < 200));
        std::optional<bool> isRead;
        if (int r = below(3); r < 2) isRead = r == 1;
        plan.record = fexo::Response(fexo::Date(700000000.0 + below(1000000) / 8.0),
                                     fexo::NotificationData("text " + std::to_string(i) + " \u00e9\u6f22",
                                                            below(4) ? std::optional<std::string>("sender") : std::nullopt),
                                     std::nullopt, std::nullopt, "fault-" + std::to_string(i) + ".", isRead);
        plan.body = plan.fault == Fault::invalidStatus ? invalidBodies[static_cast<std::size_t>(below(static_cast<int>(invalidBodies.size())))]
                                                       : fexo::JSONEncoder::serialize(nlohmann::json(plan.record));
    }
    return plans;
}

// The outcome a plan must produce: a URLError code, a decoding failure (0), or success (1).
constexpr int decodingFailure = 0;
constexpr int success = 1;

int expectedOutcome(const Plan& plan)
{
    switch (plan.fault) {
    case Fault::refused: return URLError::cannotConnectToHost;
    case Fault::closedAtAccept:
    case Fault::resetMidBody:
    case Fault::truncated: return URLError::networkConnectionLost;
    case Fault::stalled: return URLError::timedOut;
    case Fault::garbageAnswer: return URLError::badServerResponse;
    case Fault::dripped: return success;
    case Fault::garbageBody:
    case Fault::invalidStatus: return decodingFailure;
    case Fault::validStatus: return plan.status == 204 || plan.status == 304 ? decodingFailure : success;
    }
    return success;
}

TEST(FaultInjectionTest, EveryRequestCompletesOnceWithTheOutcomeItsFaultDictates)
{
    const unsigned seed = [] {
        const char* given = std::getenv("FEXO_FAULT_SEED");
        return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : 20240611u;
    }();
    constexpr std::size_t count = 600;
    const std::vector<Plan> plans = makePlans(count, seed);
    FaultServer server(plans);
    const std::string base = "http://127.0.0.1:" + std::to_string(server.port());
    const std::string closing = "http://127.0.0.1:" + std::to_string(server.closingPort());
    const std::string nobody = "http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort());

    fexo::test::TemporaryDirectory directory;
    fexo::test::ConfigurationValues configuration;
    configuration.baseURL = base;
    fexo::test::installConfiguration(directory.path(), configuration);

    std::vector<std::atomic<int>> calls(count);
    std::mutex mutex;
    std::condition_variable finished;
    std::size_t completed = 0;
    std::vector<std::string> mismatches;
    std::map<std::string, int> outcomes;
    std::counting_semaphore<16> window(16);

    auto check = [&](std::size_t index, const fexo::Result<fexo::Response>& result) {
        const Plan& plan = plans[index];
        const int expected = expectedOutcome(plan);
        std::string got;
        bool right = false;
        if (result.isSuccess()) {
            got = "success";
            right = expected == success && result.value() == plan.record;
        } else if (const auto* urlError = result.error().as<URLError>()) {
            got = "URLError " + std::to_string(urlError->code());
            right = expected == urlError->code();
        } else if (result.error().as<fexo::DecodingError>()) {
            got = "DecodingError";
            right = expected == decodingFailure;
        } else {
            got = "other error " + result.error().description();
        }
        const int call = ++calls[index];
        std::lock_guard lock(mutex);
        ++outcomes[got];
        if (!right)
            mismatches.push_back("request " + std::to_string(index) + " (" + name(plan.fault) + ", status " +
                                 std::to_string(plan.status) + "): expected " + std::to_string(expected) + ", got " +
                                 got);
        if (call == 1) ++completed;
        finished.notify_all();
    };

    fexo::NetworkingService network;
    ContentFetcher provider;
    std::array<int, faultKinds> injected{};
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_TRUE(window.try_acquire_for(patience)) << "no completion for " << patience.count() << " s";
        const Plan& plan = plans[i];
        ++injected[static_cast<std::size_t>(plan.fault)];
        auto completion = [&, i](fexo::Result<fexo::Response> result) {
            check(i, result);
            window.release();
        };
        const std::string token = "fault-" + std::to_string(i) + ".";
        if (plan.throughProvider) {
            provider.fetchNotificationContent(fexo::NotificationRequestInfo(token, "registration"), completion);
            continue;
        }
        const std::string& host = plan.fault == Fault::refused          ? nobody
                                  : plan.fault == Fault::closedAtAccept ? closing
                                                                        : base;
        network.request<fexo::Response>(FaultRequest(host + "/" + token, plan.fault == Fault::stalled ? 0.3 : 10.0),
                                        completion);
    }

    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(finished.wait_for(lock, patience, [&] { return completed == count; }))
            << completed << " of " << count << " completions ran";
    }
    ASSERT_TRUE(fexo::URLSession::shared().waitUntilIdle(patience));

    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(calls[i].load(), 1) << "request " << i;
    for (const auto& mismatch : mismatches) ADD_FAILURE() << mismatch;

    std::string report = "seed " + std::to_string(seed) + ", " + std::to_string(count) + " requests;";
    for (std::size_t kind = 0; kind < faultKinds; ++kind)
        report += " " + std::string(name(static_cast<Fault>(kind))) + " " + std::to_string(injected[kind]);
    report += "; completions " + std::to_string(completed) + ":";
    for (const auto& [outcome, number] : outcomes) report += " [" + outcome + "] " + std::to_string(number);
    std::printf("%s\n", report.c_str());
}

} // namespace
