#include <devserver/DevelopmentServer.hpp>
#include <fexo/SecretMask.hpp>

#include <devserver/DevelopmentStore.hpp>

#include <FeXOPlatform/Date.hpp>
#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>

#include <httplib.h>

#include <atomic>
#include <cstdio>
#include <deque>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>

namespace fexo::tool {

namespace {

using Json = coding::Json;

// With a charset the HTTP layer leaves answers uncompressed, so the exchange log and the
// demo show the bytes as the handlers wrote them.
constexpr const char* jsonType = "application/json; charset=utf-8";

void answer(httplib::Response& response, int status, const Json& body)
{
    response.status = status;
    response.set_content(body.dump(), jsonType);
}

std::string reasonPhrase(int status)
{
    switch (status) {
    case 400: return "Bad Request";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 413: return "Payload Too Large";
    case 414: return "URI Too Long";
    default: return "HTTP status " + std::to_string(status);
    }
}

// 36 upper-case characters, random version 4.
std::string newIdentifier()
{
    thread_local std::mt19937_64 generator{std::random_device{}()};
    std::uniform_int_distribution<unsigned> byte(0, 255);
    unsigned char bytes[16];
    for (auto& b : bytes) b = static_cast<unsigned char>(byte(generator));
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    char text[37];
    std::snprintf(text, sizeof text,
                  "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", bytes[0],
                  bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8], bytes[9],
                  bytes[10], bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return text;
}

// Collects one complaint per failing key of a request body.
class Validation {
public:
    explicit Validation(const Json& body) : body_(body) {}

    // The key's text, or nothing (and a complaint) when it is absent, null or not a string.
    const std::string* string(const char* key)
    {
        const Json* value = present(key);
        if (value == nullptr) return nullptr;
        if (!value->is_string()) {
            complain(key, std::string("The ") + key + " field must be a string.");
            return nullptr;
        }
        return &value->get_ref<const std::string&>();
    }

    // An integer from `low` to `high`; `names` says what the allowed values mean.
    std::optional<std::int64_t> integer(const char* key, std::int64_t low, std::int64_t high, const char* names)
    {
        const Json* value = present(key);
        if (value == nullptr) return std::nullopt;
        const std::string outOfRange = std::string("The ") + key + " field must be " + names + ".";
        if (value->is_number_unsigned()) {
            const auto number = value->get<std::uint64_t>();
            if (number < static_cast<std::uint64_t>(low) || number > static_cast<std::uint64_t>(high)) {
                complain(key, outOfRange);
                return std::nullopt;
            }
            return static_cast<std::int64_t>(number);
        }
        if (value->is_number_integer()) {
            const auto number = value->get<std::int64_t>();
            if (number < low || number > high) {
                complain(key, outOfRange);
                return std::nullopt;
            }
            return number;
        }
        complain(key, std::string("The ") + key + " field must be an integer.");
        return std::nullopt;
    }

    bool passed() const { return errors_.empty(); }
    Json answer() const { return Json{{"errorMessage", "Validation failed"}, {"errors", errors_}}; }

private:
    const Json* present(const char* key)
    {
        const auto found = body_.find(key);
        if (found == body_.end() || found->is_null()) {
            complain(key, std::string("The ") + key + " field is required.");
            return nullptr;
        }
        return &*found;
    }

    void complain(const char* key, std::string why)
    {
        errors_.push_back(Json{{"field", key}, {"errorMessage", std::move(why)}});
    }

    const Json& body_;
    Json errors_ = Json::array();
};

// The request body as a JSON object, or nothing after answering 400.
std::optional<Json> objectBody(const httplib::Request& request, httplib::Response& response)
{
    try {
        Json body = JSONDecoder::parse(request.body);
        if (body.is_object()) return body;
    } catch (const DecodingError&) {
    }
    answer(response, 400, Json{{"errorMessage", "The request body must be a JSON object"}});
    return std::nullopt;
}

} // namespace

struct DevelopmentServer::Impl {
    explicit Impl(DevelopmentServerOptions options) : options(std::move(options)) {}

    void route(httplib::Server& server);
    void registerNewDevice(const httplib::Request& request, httplib::Response& response);
    void getNotificationContent(const httplib::Request& request, httplib::Response& response);
    void queueNotification(const httplib::Request& request, httplib::Response& response);
    void listRegistrations(httplib::Response& response);
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
        const bool accepted = request.has_header("client_id") && request.has_header("client_secret")
            && request.get_header_value("client_id") == options.clientId
            && request.get_header_value("client_secret") == options.clientSecret;
        if (accepted) return HandlerResponse::Unhandled;
        answer(response, 401, Json{{"errorMessage", "Invalid client credentials"}});
        return HandlerResponse::Handled;
    });

    http.Post("/api/Registration/RegisterNewDevice",
              [this](const httplib::Request& request, httplib::Response& response) {
                  registerNewDevice(request, response);
              });
    http.Post("/api/Notification/GetNotificationContent",
              [this](const httplib::Request& request, httplib::Response& response) {
                  getNotificationContent(request, response);
              });
    http.Post("/dev/notifications", [this](const httplib::Request& request, httplib::Response& response) {
        queueNotification(request, response);
    });
    http.Get("/dev/registrations",
             [this](const httplib::Request&, httplib::Response& response) { listRegistrations(response); });

    // Refusals of the HTTP layer itself (unknown path, oversized body, ...) get a JSON body too;
    // answers that already carry one keep it.
    http.set_error_handler(httplib::Server::HandlerWithResponse([](const httplib::Request&, httplib::Response& response) {
        if (!response.body.empty()) return HandlerResponse::Unhandled;
        answer(response, response.status, Json{{"errorMessage", reasonPhrase(response.status)}});
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
        answer(response, 500, Json{{"errorMessage", message}});
    });
    // Recorded before the answer is written, so a client that has its answer finds the
    // exchange in the log already.
    http.set_post_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (options.closeConnectionsAfterEachAnswer) response.set_header("Connection", "close");
        record(request, response);
    });
}

void DevelopmentServer::Impl::registerNewDevice(const httplib::Request& request, httplib::Response& response)
{
    const auto body = objectBody(request, response);
    if (!body) return;
    Validation validation(*body);
    const std::string* deviceId = validation.string("deviceId");
    const std::string* registrationId = validation.string("registrationId");
    for (const char* key : {"mobileNumber", "appId", "osType", "osVersion", "imeI1", "imeI2", "data"}) {
        validation.string(key);
    }
    validation.integer("pushNotificationProvider", 1, 3, "1 (FCM), 2 (APNS) or 3 (Pushwoosh)");
    if (!validation.passed()) return answer(response, 400, validation.answer());

    store->saveRegistration(*deviceId, *registrationId, body->dump());
    answer(response, 200, Json::object());
}

void DevelopmentServer::Impl::getNotificationContent(const httplib::Request& request, httplib::Response& response)
{
    const auto body = objectBody(request, response);
    if (!body) return;
    Validation validation(*body);
    const std::string* recipientId = validation.string("recipientId");
    validation.string("registrationId");
    if (!validation.passed()) return answer(response, 400, validation.answer());

    const auto notification = store->takeOldest(*recipientId);
    if (!notification) {
        return answer(response, 404, Json{{"errorCode", 404}, {"errorMessage", "Notification not found"}});
    }
    answer(response, 200,
           Json{{"createdAt", notification->createdAt},
                {"data", {{"text", notification->text}, {"sender", notification->sender}}},
                {"id", notification->id},
                {"isRead", false}});
}

void DevelopmentServer::Impl::queueNotification(const httplib::Request& request, httplib::Response& response)
{
    const auto body = objectBody(request, response);
    if (!body) return;
    Validation validation(*body);
    const std::string* recipientId = validation.string("recipientId");
    const std::string* text = validation.string("text");
    const std::string* sender = validation.string("sender");
    if (!validation.passed()) return answer(response, 400, validation.answer());

    store->enqueue({newIdentifier(), *recipientId, *text, *sender, Date::now().timeIntervalSinceReferenceDate()});
    answer(response, 200,
           Json{{"recipientId", *recipientId},
                {"registration_id", store->registrationIdOf(*recipientId).value_or("")},
                {"aps", {{"alert", {{"title", *sender}, {"body", *text}}}}}});
}

void DevelopmentServer::Impl::listRegistrations(httplib::Response& response)
{
    Json list = Json::array();
    for (const std::string& body : store->registrations()) list.push_back(Json::parse(body));
    answer(response, 200, list);
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

    const auto& host = impl_->options.host;
    const int port = impl_->options.port == 0
        ? server->bind_to_any_port(host)
        : (server->bind_to_port(host, impl_->options.port) ? impl_->options.port : -1);
    if (port <= 0) {
        throw std::runtime_error("cannot listen on " + host + " port " + std::to_string(impl_->options.port));
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
