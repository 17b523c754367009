// A seeded random run of several hundred requests against loopback servers that misbehave on
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
#include <map>
#include <memory>
#include <random>
#include <semaphore>
#include <set>

namespace {

using namespace std::chrono_literals;
using fexo::URLError;

constexpr auto patience = 30s;
constexpr double totalDeadline = 10.0; // the shared session's resource timeout in this run: slow builds need the room

// Each fault with its weight in the run and the outcome it must produce: a URLError code, a
// decoding failure (0), or success with exactly the answered record (1); exceptions in expectedOutcome().
#define FAULTS(X)                                                                                                      \
    X(refused, 3, URLError::cannotConnectToHost)          /* nothing listens on the port */                            \
    X(closedAtAccept, 3, URLError::networkConnectionLost) /* closed before anything is read */                         \
    X(resetMidBody, 5, URLError::networkConnectionLost)   /* headers and half the body, then a TCP reset */            \
    X(stalled, 1, URLError::timedOut)                     /* silence after the request (or after the headers) */       \
    X(truncated, 5, URLError::networkConnectionLost)      /* the body ends before its length, or inside a chunk */     \
    X(dripped, 3, 1)                                      /* a valid record, one byte per write */                     \
    X(endlessDrip, 1, URLError::timedOut)                 /* a byte every 100 ms: only the total deadline ends it */   \
    X(endlessBody, 2, URLError::dataLengthExceedsMaximum) /* chunked, or HTTP/1.0 without a length, forever */         \
    X(gzipBomb, 2, URLError::dataLengthExceedsMaximum)    /* a few KiB of gzip that inflate to 2 MiB */                \
    X(garbageBody, 3, 0)                                  /* 200 with exactly 1 MiB of random bytes as the body */     \
    X(garbageAnswer, 3, URLError::badServerResponse)      /* 1 MiB of random bytes in place of an HTTP answer */       \
    X(redirectSame, 4, 1)   /* 30x within the origin (relative, absolute, "//"), or round in circles */                \
    X(redirectOther, 4, 1)  /* 30x to another origin, its own body the record */                                       \
    X(validStatus, 30, 1)   /* any status with a valid record as the body */                                           \
    X(invalidStatus, 27, 0) /* any status with a body that is not a record */
#define NAME(fault, weight, outcome) fault,
#define TRAITS(fault, weight, outcome) {#fault, weight, static_cast<int>(outcome)},
enum class Fault {
    FAULTS(NAME)
};
constexpr struct {
    const char* name;
    int weight;
    int outcome;
} traits[] = {FAULTS(TRAITS)};

// What one request is answered with, decided before it is sent.
struct Plan {
    Fault fault = Fault::validStatus;
    int status = 200;
    bool variant = false; // which form of the fault
    bool throughProvider = false;
    std::string body;      // the record or the invalid body
    fexo::Response record; // what a successful decode must yield
};

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
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, 128) != 0)
        throw std::runtime_error("bind/listen on 127.0.0.1");
    return fd;
}

std::string randomBytes(std::size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::string bytes(count, '\0');
    for (char& c : bytes) c = static_cast<char>(random() & 0xff);
    bytes[0] = '\xff'; // never the start of JSON or of a status line
    return bytes;
}

std::string answer(int status, const std::string& body, bool withBody = true)
{
    std::string text = "HTTP/1.1 " + std::to_string(status) + (status < 400 ? " Fine" : " Trouble") +
                       "\r\nContent-Type: application/json\r\n";
    if (withBody) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    return text + "\r\n" + (withBody ? body : "");
}

// A raw HTTP/1.1 server on 127.0.0.1 that answers each request by its plan, found through the
// token "fault-<index>." in the request line or body. It listens on three ports, three origins:
// the main one, a slow one (stalls and drips, so they hold no slot of the main origin), and one
// that closes every connection at once. Each connection gets a thread; all are joined on
// destruction.
class FaultServer {
public:
    static constexpr int main = 0, slow = 1, closing = 2; // the ports

    explicit FaultServer(const std::vector<Plan>& plans) : plans_(plans)
    {
        if (::pipe2(stopPipe_, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
        for (int& fd : listeners_) fd = listenOnLoopback();
        acceptor_ = std::thread([this] { acceptLoop(); });
    }

    ~FaultServer()
    {
        ::close(stopPipe_[1]); // every poll below sees the read end become readable
        acceptor_.join();
        for (auto& worker : workers_) worker.join();
        for (int fd : listeners_) ::close(fd);
        ::close(stopPipe_[0]);
    }

    std::string url(int port) const
    {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        ::getsockname(listeners_[port], reinterpret_cast<sockaddr*>(&address), &length);
        return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }

private:
    // Waits until `fd` is readable; false when the server stops or `limit` passes.
    bool waitReadable(int fd, std::chrono::milliseconds limit) const
    {
        pollfd fds[2] = {{fd, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
        return ::poll(fds, 2, static_cast<int>(limit.count())) > 0 && fds[1].revents == 0;
    }

    void acceptLoop()
    {
        for (;;) {
            pollfd fds[4] = {{listeners_[0], POLLIN, 0},
                             {listeners_[1], POLLIN, 0},
                             {listeners_[2], POLLIN, 0},
                             {stopPipe_[0], POLLIN, 0}};
            if (::poll(fds, 4, -1) < 0) continue;
            if (fds[3].revents) return;
            for (int port : {main, slow, closing}) {
                if (!fds[port].revents) continue;
                const int fd = ::accept4(listeners_[port], nullptr, nullptr, SOCK_CLOEXEC);
                if (fd >= 0 && port == closing) ::close(fd);
                if (fd < 0 || port == closing) continue;
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
        while (headEnd == std::string::npos || request.size() < headEnd + 4 + wanted) {
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
        return request;
    }

    // Serves requests on one connection until a fault ends it or the peer leaves.
    void serve(int fd) const
    {
        for (std::string request; !(request = readRequest(fd)).empty();) {
            const auto at = request.find("fault-");
            const std::size_t index =
                at == std::string::npos ? plans_.size() : std::strtoul(&request[at + 6], nullptr, 10);
            if (index >= plans_.size()) return;
            const Plan& plan = plans_[index];
            const std::string& body = plan.body;
            const std::string path =
                request.substr(request.find(' ') + 1, request.find(" HTTP/") - request.find(' ') - 1);
            switch (plan.fault) {
            case Fault::refused:
            case Fault::closedAtAccept:
            case Fault::gzipBomb:
                return; // never reach this server
            case Fault::resetMidBody: {
                const std::string text = answer(200, body);
                sendAll(fd, text.substr(0, text.size() - body.size() / 2));
                const linger reset{1, 0};
                ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
                return;
            }
            case Fault::stalled:
                if (plan.variant) sendAll(fd, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"id\":");
                while (waitReadable(fd, 10s)) { // silent until the client gives up and closes
                    char sink[256];
                    if (::recv(fd, sink, sizeof sink, 0) <= 0) return;
                }
                return;
            case Fault::truncated: {
                std::string text = answer(200, body);
                text.insert(text.find("Content-Length: ") + 16, "1"); // ten times and more
                sendAll(fd, plan.variant
                                ? "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n40\r\n" + body.substr(0, 10)
                                : text);
                ::shutdown(fd, SHUT_WR);
                return;
            }
            case Fault::dripped:
            case Fault::endlessDrip:
                for (char c : answer(200, plan.fault == Fault::dripped ? body : body + std::string(1 << 20, ' '))) {
                    if (!sendAll(fd, std::string_view(&c, 1))) return;
                    std::this_thread::sleep_for(plan.fault == Fault::dripped ? 200us : 100ms);
                }
                continue;
            case Fault::endlessBody:
                sendAll(fd, plan.variant ? "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                         : "HTTP/1.0 200 OK\r\n\r\n");
                while (sendAll(fd, plan.variant ? "4000\r\n" + std::string(0x4000, ' ') + "\r\n"
                                                : std::string(0x4000, ' '))) { }
                return;
            case Fault::garbageBody:
                sendAll(fd, answer(200, randomBytes(1 << 20, static_cast<unsigned>(request.size()))));
                continue;
            case Fault::garbageAnswer:
                sendAll(fd, randomBytes(1 << 20, static_cast<unsigned>(request.size())));
                ::shutdown(fd, SHUT_WR);
                return;
            case Fault::redirectSame:
            case Fault::redirectOther:
                if (path.find(".hop") == std::string::npos || plan.variant) {
                    // The token rides in the query: a redirected POST may come back as a GET without body.
                    const std::string hop = path.substr(0, path.find('?')) + "?fault-" + std::to_string(index) + ".hop";
                    const std::string forms[] = {hop, url(main) + hop, "//" + url(main).substr(7) + hop,
                                                 url(closing) + hop, "//" + url(closing).substr(7) + hop};
                    const int form = plan.fault == Fault::redirectSame ? plan.status % 3 : 3 + plan.status % 2;
                    sendAll(fd, "HTTP/1.1 " + std::to_string(plan.status) + " Moved\r\nLocation: " + forms[form] +
                                    "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
                    continue;
                }
                [[fallthrough]];
            case Fault::validStatus:
            case Fault::invalidStatus:
                if (plan.status < 200)
                    sendAll(fd, "HTTP/1.1 " + std::to_string(plan.status) + " Info\r\n\r\n" + answer(200, body));
                else
                    sendAll(fd, answer(plan.status, body, plan.status != 204 && plan.status != 304));
                continue;
            }
        }
    }

    const std::vector<Plan>& plans_;
    int stopPipe_[2] = {-1, -1};
    int listeners_[3] = {-1, -1, -1};
    std::thread acceptor_;
    std::vector<std::thread> workers_; // acceptor thread only, until it has been joined
};

// One request of the run, sent by URL so that a plan can point anywhere, with its own timeout.
struct FaultRequest : fexo::RequestProviding {
    FaultRequest(std::string url, double timeout, bool gzip) : url(std::move(url)), timeout(timeout), gzip(gzip) { }

    fexo::URLRequest urlRequest() const override
    {
        fexo::URLRequest request(*fexo::URL::fromString(url), fexo::URLRequest::CachePolicy::useProtocolCachePolicy,
                                 timeout);
        request.setHTTPMethod("POST");
        request.setAllHTTPHeaderFields({{"Content-Type", "application/json"}, {"client_secret", "secret"}});
        request.setValue(gzip ? "gzip" : "identity", "Accept-Encoding");
        request.setHTTPBody("{}");
        return request;
    }

    std::string url;
    double timeout;
    bool gzip;
};

struct ContentFetcher : fexo::NotificationContentProvider {
    fexo::NetworkingService service;
    const fexo::Networking& network() const override { return service; }
};

const std::vector<std::string> invalidBodies{"",         "not json",   "null",          "[]",
                                             "\"text\"", "{\"id\":5}", "{\"id\":\"x\"", "{\"data\":{\"text\":true}}"};

// Builds `count` plans from `seed`. Slow faults cost their time each, so only a handful.
std::vector<Plan> makePlans(std::size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    std::discrete_distribution<int> pick(std::size(traits), 0, std::size(traits), [](double at) {
        return traits[static_cast<std::size_t>(at)].weight; // called at each index plus one half
    });
    std::vector<Plan> plans(count);
    std::map<Fault, int> slow;
    for (std::size_t i = 0; i < count; ++i) {
        Plan& plan = plans[i];
        plan.fault = static_cast<Fault>(pick(random));
        if ((plan.fault == Fault::stalled || plan.fault == Fault::endlessDrip) && ++slow[plan.fault] > 4)
            plan.fault = Fault::validStatus;
        plan.variant = below(2) == 0;
        // The library's own endpoint reaches only the main origin and waits a minute on silence.
        plan.throughProvider = below(3) == 0 && (plan.fault == Fault::resetMidBody || plan.fault == Fault::truncated ||
                                                 plan.fault == Fault::dripped || plan.fault >= Fault::garbageBody);
        do {
            plan.status = 100 + below(500);
        } while (plan.status == 101 || (plan.status > 103 && plan.status < 200));
        if (plan.fault == Fault::redirectSame || plan.fault == Fault::redirectOther)
            plan.status = std::array{301, 302, 303, 307, 308}[static_cast<std::size_t>(below(5))];
        std::optional<bool> isRead;
        if (int r = below(3); r < 2) isRead = r == 1;
        plan.record =
            fexo::Response(fexo::Date(700000000.0 + below(1000000)),
                           fexo::NotificationData("text " + std::to_string(i) + " \u00e9\u6f22",
                                                  below(4) ? std::optional<std::string>("sender") : std::nullopt),
                           std::nullopt, std::nullopt, "fault-" + std::to_string(i) + ".", isRead);
        plan.body = plan.fault == Fault::invalidStatus
                        ? invalidBodies[static_cast<std::size_t>(below(static_cast<int>(invalidBodies.size())))]
                        : fexo::JSONEncoder::serialize(nlohmann::json(plan.record));
    }
    return plans;
}

int expectedOutcome(const Plan& plan)
{
    if (plan.fault == Fault::redirectSame && plan.variant) return URLError::httpTooManyRedirects;
    if (plan.fault == Fault::validStatus && (plan.status == 204 || plan.status == 304)) return 0;
    return traits[static_cast<std::size_t>(plan.fault)].outcome;
}

std::string outcomeOf(const fexo::Result<fexo::Response>& result, const fexo::Response& record)
{
    if (result.isSuccess()) return result.value() == record ? "1" : "another record";
    if (const auto* urlError = result.error().as<URLError>()) return std::to_string(urlError->code());
    return result.error().as<fexo::DecodingError>() ? "0" : result.error().description();
}

TEST(FaultInjectionTest, EveryRequestCompletesOnceWithTheOutcomeItsFaultDictates)
{
    fexo::URLSessionConfiguration configuration;
    configuration.timeoutIntervalForResource = totalDeadline;
    ASSERT_TRUE(fexo::URLSession::setSharedConfiguration(configuration));

    const char* givenSeed = std::getenv("FEXO_FAULT_SEED");
    const unsigned seed = givenSeed ? static_cast<unsigned>(std::strtoul(givenSeed, nullptr, 10)) : 20240611u;
    constexpr std::size_t count = 600;
    const std::vector<Plan> plans = makePlans(count, seed);
    FaultServer server(plans);
    fexo::test::LoopbackServer bombs; // compresses what the client accepts compressed
    bombs.closeConnectionsAfterEachAnswer();
    bombs.setHandler([](const httplib::Request&, httplib::Response& response) {
        response.set_content(std::string(2 << 20, '0'), "application/json");
    });
    const std::string nobody = "http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort());
    fexo::test::TemporaryDirectory directory;
    fexo::test::installConfiguration(directory.path(), {.baseURL = server.url(FaultServer::main)});

    // Completions may outlive this scope when the test fails early: they hold only this.
    struct Tally {
        std::vector<std::atomic<int>> calls = std::vector<std::atomic<int>>(count);
        std::mutex mutex;
        std::set<std::thread::id> threads;
        std::atomic<bool> running{false}, overlapped{false};
        std::vector<std::string> mismatches;
        std::counting_semaphore<16> window{16};
    };
    const auto tally = std::make_shared<Tally>();
    fexo::NetworkingService network;
    ContentFetcher provider;
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_TRUE(tally->window.try_acquire_for(patience)) << "no completion for " << patience.count() << " s";
        const Plan& plan = plans[i];
        const std::string label = "request " + std::to_string(i) + " (" +
                                  traits[static_cast<std::size_t>(plan.fault)].name + ", status " +
                                  std::to_string(plan.status) + "): got ";
        auto completion = [tally, i, label, record = plan.record,
                           expected = std::to_string(expectedOutcome(plan))](fexo::Result<fexo::Response> result) {
            if (tally->running.exchange(true)) tally->overlapped = true;
            const std::string got = outcomeOf(result, record);
            std::lock_guard lock(tally->mutex);
            tally->threads.insert(std::this_thread::get_id());
            ++tally->calls[i];
            if (got != expected) tally->mismatches.push_back(label + got);
            tally->running = false;
            tally->window.release();
        };
        const std::string token = "fault-" + std::to_string(i) + ".";
        if (plan.throughProvider) {
            provider.fetchNotificationContent(fexo::NotificationRequestInfo(token, "registration"), completion);
            continue;
        }
        const std::string host = plan.fault == Fault::refused          ? nobody
                                 : plan.fault == Fault::closedAtAccept ? server.url(FaultServer::closing)
                                 : plan.fault == Fault::gzipBomb       ? bombs.baseURL()
                                 : plan.fault == Fault::stalled || plan.fault == Fault::endlessDrip
                                     ? server.url(FaultServer::slow)
                                     : server.url(FaultServer::main);
        network.request<fexo::Response>(
            FaultRequest(host + "/" + token, plan.fault == Fault::stalled ? 0.3 : 10.0, plan.fault == Fault::gzipBomb),
            completion);
    }
    for (int last = 0; last < 16; ++last) ASSERT_TRUE(tally->window.try_acquire_for(patience)) << "completions missing";
    ASSERT_TRUE(fexo::URLSession::shared().waitUntilIdle(patience));

    std::lock_guard lock(tally->mutex);
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(tally->calls[i].load(), 1) << "request " << i;
    EXPECT_FALSE(tally->overlapped) << "completions ran at the same time";
    EXPECT_TRUE(tally->threads.size() == 1 && !tally->threads.count(std::this_thread::get_id()))
        << "not one session thread";
    for (const auto& mismatch : tally->mismatches) ADD_FAILURE() << "seed " << seed << ", " << mismatch;
}

} // namespace
