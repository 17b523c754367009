#include <devserver/ServiceRoutes.hpp>

#include <devserver/DevelopmentStore.hpp>
#include <devserver/JSONAnswer.hpp>
#include <devserver/RequestValidation.hpp>

#include <FeXOPlatform/Date.hpp>
#include <FeXOPlatform/UUID.hpp>

#include <httplib.h>

namespace fexo::tool {

namespace {

using Json = nlohmann::json;

void registerNewDevice(DevelopmentStore& store, const httplib::Request& request, httplib::Response& response)
{
    const auto body = requestObject(request, response);
    if (!body) return;
    RequestValidation validation(*body);
    const std::string* deviceId = validation.string("deviceId");
    const std::string* registrationId = validation.string("registrationId");
    for (const char* key : {"mobileNumber", "appId", "osType", "osVersion", "imeI1", "imeI2", "data"}) {
        validation.string(key);
    }
    validation.integer("pushNotificationProvider", 1, 3, "1 (FCM), 2 (APNS) or 3 (Pushwoosh)");
    if (!validation.passed()) return answerJSON(response, 400, validation.refusal());

    store.saveRegistration(*deviceId, *registrationId, body->dump());
    answerJSON(response, 200, Json::object());
}

void getNotificationContent(DevelopmentStore& store, const httplib::Request& request, httplib::Response& response)
{
    const auto body = requestObject(request, response);
    if (!body) return;
    RequestValidation validation(*body);
    const std::string* recipientId = validation.string("recipientId");
    validation.string("registrationId");
    if (!validation.passed()) return answerJSON(response, 400, validation.refusal());

    const auto notification = store.takeOldest(*recipientId);
    if (!notification) {
        return answerJSON(response, 404, {{"errorCode", 404}, {"errorMessage", "Notification not found"}});
    }
    answerJSON(response, 200,
               {{"createdAt", notification->createdAt},
                {"data", {{"text", notification->text}, {"sender", notification->sender}}},
                {"id", notification->id},
                {"isRead", false}});
}

void queueNotification(DevelopmentStore& store, const httplib::Request& request, httplib::Response& response)
{
    const auto body = requestObject(request, response);
    if (!body) return;
    RequestValidation validation(*body);
    const std::string* recipientId = validation.string("recipientId");
    const std::string* text = validation.string("text");
    const std::string* sender = validation.string("sender");
    if (!validation.passed()) return answerJSON(response, 400, validation.refusal());

    store.enqueue({UUID().uuidString(), *recipientId, *text, *sender, Date::now().timeIntervalSinceReferenceDate()});
    answerJSON(response, 200,
               {{"recipientId", *recipientId},
                {"registration_id", store.registrationIdOf(*recipientId).value_or("")},
                {"aps", {{"alert", {{"title", *sender}, {"body", *text}}}}}});
}

} // namespace

void addServiceRoutes(httplib::Server& server, DevelopmentStore& store)
{
    server.Post("/api/Registration/RegisterNewDevice",
                [&store](const httplib::Request& request, httplib::Response& response) {
                    registerNewDevice(store, request, response);
                });
    server.Post("/api/Notification/GetNotificationContent",
                [&store](const httplib::Request& request, httplib::Response& response) {
                    getNotificationContent(store, request, response);
                });
    server.Post("/dev/notifications", [&store](const httplib::Request& request, httplib::Response& response) {
        queueNotification(store, request, response);
    });
    server.Get("/dev/registrations", [&store](const httplib::Request&, httplib::Response& response) {
        Json list = Json::array();
        for (const std::string& body : store.registrations()) list.push_back(Json::parse(body));
        answerJSON(response, 200, list);
    });
}

} // namespace fexo::tool
