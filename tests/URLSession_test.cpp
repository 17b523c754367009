#include <FeXOPlatform/URLError.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <support/Completion.hpp>
#include <support/LoopbackServer.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using fexo::URLError;
using fexo::URLRequest;
using fexo::URLSessionConfiguration;
using fexo::test::LoopbackServer;
using fexo::test::patience;
using TaskCompletion = fexo::test::Completion<std::optional<std::string>, std::optional<fexo::HTTPURLResponse>,
                                              std::optional<fexo::Error>>;

struct Outcome {
    std::optional<std::string> data;
    std::optional<fexo::HTTPURLResponse> response;
    std::optional<fexo::Error> error;

    int code() const { return error && error->as<URLError>() ? error->as<URLError>()->code() : 0; }
};

URLRequest request(const std::string& url, const std::string& method = "GET", double timeout = 60.0)
{
    URLRequest result(*fexo::URL::fromString(url), URLRequest::CachePolicy::useProtocolCachePolicy, timeout);
    result.setHTTPMethod(method);
    if (method == "POST") result.setHTTPBody("{\"k\":1}");
    return result;
}

// One task: its outcome, after checking that the completion ran once and the session went idle.
Outcome load(fexo::URLSession& session, const URLRequest& request)
{
    TaskCompletion completion;
    session.dataTask(request, completion.handler()).resume();
    auto outcome = completion.wait().value_or(std::tuple{std::nullopt, std::nullopt, std::nullopt});
    EXPECT_TRUE(session.waitUntilIdle(patience));
    EXPECT_EQ(completion.calls(), 1);
    return {std::get<0>(outcome), std::get<1>(outcome), std::get<2>(outcome)};
}

class URLSessionTest : public testing::Test {
protected:
    void TearDown() override { release.set_value(); } // frees handlers that block
    Outcome load(const URLRequest& request) { return ::load(session, request); }

    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    LoopbackServer server;
    fexo::URLSession session{URLSessionConfiguration{}};
};

TEST_F(URLSessionTest, SendsMethodPathHeadersAndBodyAsGiven)
{
    server.setHandler([](const httplib::Request&, httplib::Response& response) {
        response.status = 201;
        response.set_header("X-Answer", "yes");
        response.set_content("{\"ok\":true}", "application/json");
    });
    URLRequest post = request(server.baseURL() + "/api/x?y=1", "POST");
    post.setAllHTTPHeaderFields({{"Content-Type", "application/json"}, {"client_secret", "s3"}});
    Outcome outcome = load(post);
    ASSERT_FALSE(outcome.error) << outcome.error->description();
    EXPECT_EQ(outcome.data, "{\"ok\":true}");
    EXPECT_EQ(outcome.response->statusCode(), 201);
    EXPECT_EQ(outcome.response->value("x-answer"), "yes");

    const auto received = server.requests().at(0);
    EXPECT_EQ(received.method + " " + received.path + " " + received.body, "POST /api/x {\"k\":1}");
    EXPECT_EQ(received.get_header_value("client_secret"), "s3");
    EXPECT_FALSE(received.has_header("Expect") || received.has_header("Cookie"));
}

TEST_F(URLSessionTest, HeaderFieldThatCannotBeSentAsItStandsFailsTheTaskInsteadOfBeingDropped)
{
    for (const auto& [name, value] : fexo::HTTPHeaderFields{
             {"client_secret", "s3\r\nX-Injected: 1"}, {"client_secret", "line\nbreak"}, {"a:b", "v"}, {"", "v"}}) {
        URLRequest post = request(server.baseURL() + "/x", "POST");
        post.setAllHTTPHeaderFields({{name, value}});
        EXPECT_EQ(load(post).code(), URLError::badURL) << name << ": " << value;
    }
    EXPECT_TRUE(server.requests().empty());
}

// Other origins, the forms of a target and loops are faults of the fault-injection run.
TEST_F(URLSessionTest, RedirectsChangeTheMethodAsTheirStatusSaysAndLocalhostIsAnotherOrigin)
{
    server.setHandler([port = server.port()](const httplib::Request& request, httplib::Response& response) {
        if (request.path == "/to") return response.set_content(request.method + " " + request.body, "text/plain");
        response.status = std::stoi(request.get_param_value("status"));
        response.set_header("Location",
                            request.path == "/relative" ? "/to" : "http://localhost:" + std::to_string(port) + "/to");
        response.set_content("{\"moved\":true}", "application/json");
    });
    for (int status : {301, 302, 303, 307, 308}) {
        const std::string query = "?status=" + std::to_string(status);
        Outcome followed = load(request(server.baseURL() + "/relative" + query, "POST"));
        EXPECT_EQ(followed.data, status < 307 ? "GET " : "POST {\"k\":1}") << status;
        EXPECT_EQ(followed.response->url().absoluteString(), server.baseURL() + "/to");
        Outcome kept = load(request(server.baseURL() + "/localhost" + query, "POST"));
        EXPECT_EQ(kept.data, "{\"moved\":true}");
        EXPECT_EQ(kept.response->statusCode(), status);
    }
    EXPECT_EQ(server.requests().size(), 5u * 3);
}

// The limit itself, the endless bodies and the total deadline are faults of the fault-injection run.
TEST_F(URLSessionTest, BodyLimitIsRaisableAndIdleTimeoutIsResetByEveryByte)
{
    server.setHandler([](const httplib::Request& request, httplib::Response& response) {
        if (request.path == "/bomb") return response.set_content(std::string(16 << 20, '0'), "text/plain");
        response.set_chunked_content_provider("text/plain", [](size_t offset, httplib::DataSink& sink) {
            std::this_thread::sleep_for(50ms); // twelve bytes, never idle for 0.4 s, more than 0.4 s in all
            if (offset >= 12) sink.done();
            return offset >= 12 || sink.write("x", 1);
        });
    });
    URLRequest bomb = request(server.baseURL() + "/bomb"); // a few KiB on the wire
    bomb.setValue("gzip", "Accept-Encoding");
    URLSessionConfiguration raised;
    raised.maximumBodyLength = 16 << 20;
    fexo::URLSession roomy{raised};
    EXPECT_EQ(::load(roomy, bomb).data->size(), 16u << 20);

    URLRequest drip = request(server.baseURL() + "/drip", "GET", 0.4);
    drip.setValue("identity", "Accept-Encoding"); // a compressing server would hold the pieces back
    EXPECT_EQ(load(drip).data, std::string(12, 'x'));
}

// That every task gets its own answer, once, on one thread, is the fault-injection run's to prove.
TEST_F(URLSessionTest, TasksFromSeveralThreadsReuseConnectionsWithinAndBetweenBurstsUpToThePerHostLimit)
{
    for (int burst = 0; burst < 3; ++burst) {
        std::vector<std::jthread> senders;
        for (int t = 0; t < 4; ++t)
            senders.emplace_back([&] {
                for (int i = 0; i < 30; ++i)
                    session.dataTask(request(server.baseURL() + "/"), [](auto, auto, auto) {}).resume();
            });
        senders.clear();
        ASSERT_TRUE(session.waitUntilIdle(patience));
    }
    EXPECT_EQ(server.requests().size(), 360u);
    EXPECT_GE(session.connectionsOpened(), 1u);
    EXPECT_LE(session.connectionsOpened(), 6u) << "more than the per-host limit, or connections not reused";
}

TEST_F(URLSessionTest, CompletionNeverRunsInsideResumeAndASecondResumeStartsNothing)
{
    auto inner = std::make_shared<TaskCompletion>();
    auto insideResume = std::make_shared<std::atomic<bool>>(false);
    auto ranInside = std::make_shared<std::atomic<bool>>(false);
    TaskCompletion outer;
    session
        .dataTask(request(server.baseURL() + "/outer"),
                  // The session runs this on its thread and is the fixture's first member to go.
                  [this, inner, insideResume, ranInside, handler = outer.handler()](auto d, auto r, auto e) {
                      *insideResume = true;
                      auto task = session.dataTask(request(server.baseURL() + "/inner"),
                                                   [=, next = inner->handler()](auto d, auto r, auto e) {
                                                       *ranInside = ranInside->load() || insideResume->load();
                                                       next(std::move(d), std::move(r), std::move(e));
                                                   });
                      task.resume();
                      task.resume();
                      *insideResume = false;
                      handler(std::move(d), std::move(r), std::move(e));
                  })
        .resume();
    EXPECT_TRUE(outer.wait() && inner->wait());
    EXPECT_TRUE(session.waitUntilIdle(patience));
    EXPECT_FALSE(*ranInside);
    EXPECT_EQ(inner->calls(), 1);
    EXPECT_EQ(server.requests().size(), 2u);
}

TEST_F(URLSessionTest, WaitUntilIdleWaitsForTheTaskAndDestroyingTheSessionCancelsItOnce)
{
    auto arrived = std::make_shared<std::promise<void>>();
    server.setHandler([this, arrived](const httplib::Request&, httplib::Response&) {
        arrived->set_value();
        released.wait_for(patience);
    });
    TaskCompletion completion;
    {
        fexo::URLSession own{URLSessionConfiguration{}};
        own.dataTask(request(server.baseURL() + "/never"), completion.handler()).resume();
        ASSERT_EQ(arrived->get_future().wait_for(patience), std::future_status::ready);
        EXPECT_FALSE(own.waitUntilIdle(1ms));
    }
    EXPECT_EQ(std::get<2>(*completion.wait())->as<URLError>()->code(), URLError::cancelled);
    EXPECT_EQ(completion.calls(), 1);
}

// A self-signed certificate for 127.0.0.1, made with the openssl tool.
TEST(URLSessionTLSTest, PeersAreVerifiedAgainstTheTrustedAuthoritiesAndTheHostName)
{
    fexo::test::TemporaryDirectory directory;
    const std::string key = (directory.path() / "key.pem").string(),
                      certificate = (directory.path() / "cert.pem").string();
    ASSERT_EQ(std::system(("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 -addext "
                           "subjectAltName=IP:127.0.0.1 -keyout '" +
                           key + "' -out '" + certificate + "' >/dev/null 2>&1")
                              .c_str()),
              0);
    LoopbackServer plain;
    const LoopbackServer::TLS tls{certificate, key};
    LoopbackServer secure({.tls = &tls});
    secure.setHandler(
        [to = plain.baseURL() + "/downgraded"](const httplib::Request& request, httplib::Response& response) {
            response.status = request.path == "/down" ? 302 : 200;
            response.set_header("Location", to);
        });
    fexo::URLSession system{URLSessionConfiguration{}};
    EXPECT_EQ(load(system, request(secure.baseURL() + "/secret", "POST")).code(), URLError::serverCertificateUntrusted);
    EXPECT_TRUE(secure.requests().empty());

    fexo::URLSession trusting{URLSessionConfiguration{certificate}};
    EXPECT_EQ(load(trusting, request(secure.baseURL() + "/ok")).response->statusCode(), 200);
    EXPECT_EQ(load(trusting, request(secure.baseURL() + "/down")).response->statusCode(), 302); // not to http
    EXPECT_TRUE(plain.requests().empty());
    // The certificate names 127.0.0.1, not localhost.
    EXPECT_EQ(load(trusting, request("https://localhost:" + std::to_string(secure.port()) + "/ok")).code(),
              URLError::serverCertificateUntrusted);
}

using URLSessionDeathTest = URLSessionTest;

TEST_F(URLSessionDeathTest, SharedSessionTakesAConfigurationBeforeItsFirstTaskAndExitsCleanlyWithOneInFlight)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            auto arrived = std::make_shared<std::promise<void>>();
            server.setHandler([this, arrived](const httplib::Request&, httplib::Response& response) {
                arrived->set_value();
                response.set_chunked_content_provider("text/plain", [this](size_t offset, httplib::DataSink& sink) {
                    if (offset == 0) return sink.write("part", 4);
                    released.wait_for(patience);
                    return false;
                });
            });
            if (!fexo::URLSession::setSharedConfiguration(URLSessionConfiguration{})) std::_Exit(4);
            fexo::URLSession::shared()
                .dataTask(request(server.baseURL() + "/exit"), [](auto, auto, auto) { std::_Exit(3); })
                .resume();
            if (fexo::URLSession::setSharedConfiguration(URLSessionConfiguration{})) std::_Exit(5);
            arrived->get_future().wait_for(patience);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
