#include <FeXOPlatform/URLError.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <support/LoopbackServer.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <map>
#include <set>
#include <thread>

namespace {

using namespace std::chrono_literals;
using fexo::URLError;
using fexo::URLRequest;
using fexo::test::LoopbackServer;

constexpr auto patience = 20s;

struct Outcome {
    std::optional<std::string> data;
    std::optional<fexo::HTTPURLResponse> response;
    std::optional<fexo::Error> error;

    std::optional<int> errorCode() const
    {
        if (!error) return std::nullopt;
        const auto* urlError = error->as<URLError>();
        return urlError ? std::optional<int>(urlError->code()) : std::nullopt;
    }
};

// Collects the outcome of one task and counts how often its completion ran.
class Completion {
public:
    fexo::URLSession::CompletionHandler handler()
    {
        return [this](std::optional<std::string> data, std::optional<fexo::HTTPURLResponse> response,
                      std::optional<fexo::Error> error) {
            if (calls_.fetch_add(1) == 0) promise_.set_value(Outcome{std::move(data), std::move(response), std::move(error)});
        };
    }

    Outcome wait()
    {
        auto future = promise_.get_future();
        if (future.wait_for(patience) != std::future_status::ready) {
            ADD_FAILURE() << "completion did not run";
            return {};
        }
        return future.get();
    }

    int calls() const { return calls_.load(); }

private:
    std::promise<Outcome> promise_;
    std::atomic<int> calls_{0};
};

// A latch that blocking handlers wait on; released at the latest when the test ends.
class Gate {
public:
    void wait() { future_.wait_for(patience); }
    void open()
    {
        std::call_once(once_, [&] { promise_.set_value(); });
    }

private:
    std::promise<void> promise_;
    std::shared_future<void> future_ = promise_.get_future().share();
    std::once_flag once_;
};

URLRequest request(const std::string& url, const std::string& method = "GET",
                   std::optional<std::string> body = std::nullopt, double timeout = 60.0)
{
    auto parsed = fexo::URL::fromString(url);
    if (!parsed) throw std::invalid_argument(url);
    URLRequest result(*parsed, URLRequest::CachePolicy::reloadIgnoringLocalAndRemoteCacheData, timeout);
    result.setHTTPMethod(method);
    result.setHTTPBody(std::move(body));
    return result;
}

// One task through `session`: its outcome, after checking that the completion ran exactly once
// and the session went idle.
Outcome loadOnce(fexo::URLSession& session, const URLRequest& request)
{
    Completion completion;
    session.dataTask(request, completion.handler()).resume();
    Outcome outcome = completion.wait();
    EXPECT_TRUE(session.waitUntilIdle(patience));
    EXPECT_EQ(completion.calls(), 1);
    return outcome;
}

class URLSessionTest : public testing::Test {
protected:
    void TearDown() override { gate.open(); }

    Outcome load(const URLRequest& request) { return loadOnce(session, request); }

    Gate gate;
    LoopbackServer server;
    fexo::URLSession session{fexo::URLSessionConfiguration{}};
};

TEST_F(URLSessionTest, SendsMethodPathHeadersAndBodyAsGiven)
{
    server.setHandler([](const httplib::Request&, httplib::Response& response) {
        response.status = 201;
        response.set_header("X-Answer", "yes");
        response.set_content("{\"ok\":true}", "application/json");
    });
    URLRequest post = request(server.baseURL() + "/api/Registration/RegisterNewDevice?x=1", "POST", "{\"a\":\"\u00e9\"}");
    post.setAllHTTPHeaderFields({{"Content-Type", "application/json"}, {"client_secret", "s3"}, {"client_id", "id"}});

    Outcome outcome = load(post);
    ASSERT_FALSE(outcome.error.has_value()) << outcome.error->description();
    EXPECT_EQ(outcome.data, "{\"ok\":true}");
    ASSERT_TRUE(outcome.response.has_value());
    EXPECT_EQ(outcome.response->statusCode(), 201);
    EXPECT_EQ(outcome.response->value("x-answer"), "yes");
    EXPECT_EQ(outcome.response->url().absoluteString(), post.url().absoluteString());

    auto received = server.requests();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].path, "/api/Registration/RegisterNewDevice");
    EXPECT_EQ(received[0].body, "{\"a\":\"\u00e9\"}");
    EXPECT_EQ(received[0].header("Content-Type"), "application/json");
    EXPECT_EQ(received[0].header("client_secret"), "s3");
    EXPECT_EQ(received[0].header("client_id"), "id");
    EXPECT_FALSE(received[0].header("Expect").has_value());
    EXPECT_FALSE(received[0].header("Cookie").has_value());
}

TEST_F(URLSessionTest, PostWithoutBodySendsAnEmptyOne)
{
    ASSERT_FALSE(load(request(server.baseURL() + "/empty", "POST")).error.has_value());
    auto received = server.requests();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].body, "");
    EXPECT_EQ(received[0].header("Content-Length"), "0");
}

TEST_F(URLSessionTest, EveryStatusIsAnAnswerWithItsBody)
{
    for (int status : {200, 204, 400, 401, 404, 500, 503}) {
        SCOPED_TRACE(status);
        server.setHandler([status](const httplib::Request&, httplib::Response& response) {
            response.status = status;
            if (status != 204) response.set_content("body " + std::to_string(status), "text/plain");
        });
        Outcome outcome = load(request(server.baseURL() + "/status", "POST", "{}"));
        ASSERT_FALSE(outcome.error.has_value()) << outcome.error->description();
        ASSERT_TRUE(outcome.response.has_value());
        EXPECT_EQ(outcome.response->statusCode(), status);
        EXPECT_EQ(outcome.data, status == 204 ? "" : "body " + std::to_string(status));
    }
}

TEST_F(URLSessionTest, RefusedConnectionIsCannotConnect)
{
    const std::string url = "http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort()) + "/x";
    Outcome outcome = load(request(url, "POST", "{}"));
    EXPECT_EQ(outcome.errorCode(), URLError::cannotConnectToHost);
    EXPECT_FALSE(outcome.data.has_value());
    EXPECT_FALSE(outcome.response.has_value());
    EXPECT_EQ(outcome.error->as<URLError>()->failingURL(), url);
}

TEST_F(URLSessionTest, ConnectionClosedInTheMiddleOfTheBodyIsConnectionLost)
{
    server.setHandler([](const httplib::Request&, httplib::Response& response) {
        response.set_content_provider(1000, "application/json", [](size_t, size_t, httplib::DataSink& sink) {
            sink.write("{\"partial\":", 11);
            return false; // the server drops the connection
        });
    });
    Outcome outcome = load(request(server.baseURL() + "/cut"));
    EXPECT_EQ(outcome.errorCode(), URLError::networkConnectionLost);
    EXPECT_FALSE(outcome.data.has_value());
}

TEST_F(URLSessionTest, ServerThatFallsSilentTimesOutAfterTheIdleInterval)
{
    server.setHandler([this](const httplib::Request& request, httplib::Response& response) {
        if (request.path == "/silent") {
            gate.wait(); // no status line at all
            return;
        }
        response.set_chunked_content_provider("text/plain", [this](size_t offset, httplib::DataSink& sink) {
            if (offset == 0) return sink.write("first", 5);
            gate.wait(); // headers and some body sent, then nothing
            return false;
        });
    });
    for (const char* path : {"/silent", "/stalled"}) {
        SCOPED_TRACE(path);
        Outcome outcome = load(request(server.baseURL() + path, "GET", std::nullopt, 0.3));
        EXPECT_EQ(outcome.errorCode(), URLError::timedOut);
        EXPECT_FALSE(outcome.data.has_value());
    }
}

TEST_F(URLSessionTest, TimeoutIsIdleTimeNotTotalTime)
{
    // Twelve pieces 50 ms apart take longer than the 0.4 s interval, but the line never idles that long.
    server.setHandler([](const httplib::Request&, httplib::Response& response) {
        response.set_chunked_content_provider("text/plain", [](size_t offset, httplib::DataSink& sink) {
            if (offset >= 12) {
                sink.done();
                return true;
            }
            std::this_thread::sleep_for(50ms);
            return sink.write("x", 1);
        });
    });
    URLRequest trickle = request(server.baseURL() + "/trickle", "GET", std::nullopt, 0.4);
    trickle.setValue("identity", "Accept-Encoding"); // a compressing server would hold the pieces back
    Outcome outcome = load(trickle);
    ASSERT_FALSE(outcome.error.has_value()) << outcome.error->description();
    EXPECT_EQ(outcome.data, std::string(12, 'x'));
}

TEST_F(URLSessionTest, RedirectsTurnPostIntoGetOnlyFor301To303)
{
    server.setHandler([](const httplib::Request& request, httplib::Response& response) {
        if (request.path.starts_with("/from/")) {
            response.status = std::stoi(request.path.substr(6));
            response.set_header("Location", "/to");
        } else {
            response.set_content(request.method + " " + request.body, "text/plain");
        }
    });
    for (int status : {301, 302, 303, 307, 308}) {
        SCOPED_TRACE(status);
        Outcome outcome = load(request(server.baseURL() + "/from/" + std::to_string(status), "POST", "{\"k\":1}"));
        ASSERT_FALSE(outcome.error.has_value()) << outcome.error->description();
        EXPECT_EQ(outcome.data, status < 307 ? "GET " : "POST {\"k\":1}");
        EXPECT_EQ(outcome.response->statusCode(), 200);
        EXPECT_EQ(outcome.response->url().absoluteString(), server.baseURL() + "/to");
    }
}

TEST_F(URLSessionTest, EndlessRedirectsStopWithTooManyRedirects)
{
    server.setHandler([](const httplib::Request& request, httplib::Response& response) {
        response.status = 302;
        response.set_header("Location", request.path + "x");
    });
    Outcome outcome = load(request(server.baseURL() + "/loop"));
    EXPECT_EQ(outcome.errorCode(), URLError::httpTooManyRedirects);
    EXPECT_LE(server.requests().size(), 17u);
}

TEST_F(URLSessionTest, ManyRequestsFromSeveralThreadsEachGetTheirOwnAnswerOverReusedConnections)
{
    server.setHandler([](const httplib::Request& request, httplib::Response& response) {
        response.set_content("answer to " + request.path, "text/plain");
    });
    constexpr int threads = 4;
    constexpr int perThread = 25;
    std::mutex mutex;
    std::map<std::string, std::vector<std::string>> answers;
    std::set<std::thread::id> completionThreads;
    std::atomic<int> concurrent{0};
    std::atomic<bool> overlapped{false};
    std::atomic<int> done{0};
    std::promise<void> allDone;

    std::vector<std::thread> senders;
    for (int t = 0; t < threads; ++t) {
        senders.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) {
                const std::string path = "/r/" + std::to_string(t) + "/" + std::to_string(i);
                session.dataTask(request(server.baseURL() + path), [&, path](auto data, auto, auto error) {
                    if (concurrent.fetch_add(1) != 0) overlapped = true;
                    {
                        std::lock_guard lock(mutex);
                        answers[path].push_back(error ? error->description() : data.value_or("<none>"));
                        completionThreads.insert(std::this_thread::get_id());
                    }
                    concurrent.fetch_sub(1);
                    if (done.fetch_add(1) + 1 == threads * perThread) allDone.set_value();
                }).resume();
            }
        });
    }
    for (auto& sender : senders) sender.join();
    ASSERT_EQ(allDone.get_future().wait_for(patience), std::future_status::ready);
    ASSERT_TRUE(session.waitUntilIdle(patience));

    EXPECT_FALSE(overlapped);
    EXPECT_EQ(completionThreads.size(), 1u);
    EXPECT_EQ(completionThreads.count(std::this_thread::get_id()), 0u);
    ASSERT_EQ(answers.size(), static_cast<size_t>(threads * perThread));
    for (const auto& [path, received] : answers) EXPECT_EQ(received, std::vector<std::string>{"answer to " + path});
    EXPECT_GE(session.connectionsOpened(), 1u);
    EXPECT_LE(session.connectionsOpened(), 6u); // at most the per-host limit, each reused
}

// Connections are kept between bursts: as a burst drains, the few transfers left must not
// shrink the connection cache below the connections that served it.
TEST_F(URLSessionTest, ConnectionsOutliveTheBurstsTheyServe)
{
    server.setHandler([](const httplib::Request&, httplib::Response& response) { response.set_content("ok", "text/plain"); });
    constexpr int bursts = 5;
    constexpr int perBurst = 120;
    for (int burst = 0; burst < bursts; ++burst) {
        std::atomic<int> done{0};
        std::promise<void> allDone;
        for (int i = 0; i < perBurst; ++i) {
            session.dataTask(request(server.baseURL() + "/b"), [&](auto, auto, auto) {
                if (done.fetch_add(1) + 1 == perBurst) allDone.set_value();
            }).resume();
        }
        ASSERT_EQ(allDone.get_future().wait_for(patience), std::future_status::ready)
            << "burst " << burst << ": " << done << " of " << perBurst << " completed, server saw "
            << server.requests().size() << " requests, connections opened " << session.connectionsOpened();
        ASSERT_TRUE(session.waitUntilIdle(patience));
    }
    EXPECT_GE(session.connectionsOpened(), 1u);
    EXPECT_LE(session.connectionsOpened(), 6u) << "connections were closed and opened again between bursts";
}

TEST_F(URLSessionTest, CompletionNeverRunsInsideResumeEvenWhenResumedFromACompletion)
{
    Completion inner;
    std::atomic<bool> insideResume{false};
    std::atomic<bool> ranInside{false};
    auto innerHandler = inner.handler();
    Completion outer;
    auto outerHandler = outer.handler();
    session.dataTask(request(server.baseURL() + "/outer"), [&](auto data, auto response, auto error) {
        insideResume = true;
        session.dataTask(request(server.baseURL() + "/inner"), [&](auto d, auto r, auto e) {
            if (insideResume) ranInside = true;
            innerHandler(std::move(d), std::move(r), std::move(e));
        }).resume();
        insideResume = false;
        outerHandler(std::move(data), std::move(response), std::move(error));
    }).resume();
    EXPECT_FALSE(outer.wait().error.has_value());
    EXPECT_FALSE(inner.wait().error.has_value());
    EXPECT_FALSE(ranInside);
    EXPECT_TRUE(session.waitUntilIdle(patience));
}

TEST_F(URLSessionTest, WaitUntilIdleWaitsForTheTaskInFlight)
{
    std::promise<void> arrived;
    server.setHandler([&](const httplib::Request&, httplib::Response& response) {
        arrived.set_value();
        gate.wait();
        response.set_content("late", "text/plain");
    });
    Completion completion;
    auto task = session.dataTask(request(server.baseURL() + "/slow"), completion.handler());
    task.resume();
    task.resume(); // a second resume starts nothing
    ASSERT_EQ(arrived.get_future().wait_for(patience), std::future_status::ready);
    EXPECT_FALSE(session.waitUntilIdle(1ms));
    gate.open();
    EXPECT_EQ(completion.wait().data, "late");
    EXPECT_TRUE(session.waitUntilIdle(patience));
    EXPECT_EQ(completion.calls(), 1);
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(URLSessionTest, DestroyingASessionCancelsItsTasksOnce)
{
    std::promise<void> arrived;
    server.setHandler([&](const httplib::Request&, httplib::Response&) {
        arrived.set_value();
        gate.wait();
    });
    Completion completion;
    {
        fexo::URLSession own{fexo::URLSessionConfiguration{}};
        own.dataTask(request(server.baseURL() + "/never"), completion.handler()).resume();
        ASSERT_EQ(arrived.get_future().wait_for(patience), std::future_status::ready);
    }
    EXPECT_EQ(completion.wait().errorCode(), URLError::cancelled);
    EXPECT_EQ(completion.calls(), 1);
}

// A self-signed certificate for 127.0.0.1, made with the openssl tool.
class URLSessionTLSTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        directory = new fexo::test::TemporaryDirectory();
        const std::string command = "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1"
                                    " -addext subjectAltName=IP:127.0.0.1 -keyout '" + key() + "' -out '" + certificate() +
                                    "' >/dev/null 2>&1";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }
    static void TearDownTestSuite() { delete directory; }
    static std::string key() { return (directory->path() / "key.pem").string(); }
    static std::string certificate() { return (directory->path() / "cert.pem").string(); }

    static Outcome load(fexo::URLSession& session, const URLRequest& request) { return loadOnce(session, request); }

    static inline fexo::test::TemporaryDirectory* directory = nullptr;
};

TEST_F(URLSessionTLSTest, SelfSignedServerIsUntrustedAndNeverReached)
{
    LoopbackServer server(LoopbackServer::TLS{certificate(), key()});
    fexo::URLSession session{fexo::URLSessionConfiguration{}};
    Outcome outcome = load(session, request(server.baseURL() + "/secret", "POST", "{\"token\":1}"));
    EXPECT_EQ(outcome.errorCode(), URLError::serverCertificateUntrusted);
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(URLSessionTLSTest, TrustedAuthorityIsAcceptedButTheHostNameStillChecked)
{
    LoopbackServer server(LoopbackServer::TLS{certificate(), key()});
    server.setHandler([](const httplib::Request&, httplib::Response& response) { response.set_content("secure", "text/plain"); });
    fexo::URLSession session{fexo::URLSessionConfiguration{certificate()}};

    Outcome trusted = load(session, request(server.baseURL() + "/ok"));
    ASSERT_FALSE(trusted.error.has_value()) << trusted.error->description();
    EXPECT_EQ(trusted.data, "secure");

    // The certificate names 127.0.0.1, not localhost.
    Outcome wrongName = load(session, request("https://localhost:" + std::to_string(server.port()) + "/ok"));
    EXPECT_EQ(wrongName.errorCode(), URLError::serverCertificateUntrusted);
}

TEST_F(URLSessionTLSTest, RedirectFromHttpsToHttpIsNotFollowed)
{
    LoopbackServer plain;
    LoopbackServer secure(LoopbackServer::TLS{certificate(), key()});
    secure.setHandler([&](const httplib::Request&, httplib::Response& response) {
        response.status = 302;
        response.set_header("Location", plain.baseURL() + "/downgraded");
    });
    fexo::URLSession session{fexo::URLSessionConfiguration{certificate()}};
    Outcome outcome = load(session, request(secure.baseURL() + "/start"));
    EXPECT_TRUE(outcome.error.has_value());
    EXPECT_TRUE(plain.requests().empty());
}

using URLSessionDeathTest = URLSessionTest;

TEST_F(URLSessionDeathTest, ProcessExitsCleanlyWithATaskInFlightOnTheSharedSession)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::promise<void> arrived;
            server.setHandler([&](const httplib::Request&, httplib::Response& response) {
                arrived.set_value();
                response.set_chunked_content_provider("text/plain", [this](size_t offset, httplib::DataSink& sink) {
                    if (offset == 0) return sink.write("part", 4);
                    gate.wait();
                    return false;
                });
            });
            fexo::URLSession::shared()
                .dataTask(request(server.baseURL() + "/exit"), [](auto, auto, auto) { std::_Exit(3); })
                .resume();
            arrived.get_future().wait_for(patience);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
