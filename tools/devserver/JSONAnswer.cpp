#include <devserver/JSONAnswer.hpp>

#include <httplib.h>

namespace fexo::tool {

void answerJSON(httplib::Response& response, int status, const nlohmann::json& body)
{
    response.status = status;
    response.set_content(body.dump(), "application/json; charset=utf-8");
}

std::string reasonPhrase(int status)
{
    switch (status) {
    case 400:
        return "Bad Request";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 413:
        return "Payload Too Large";
    case 414:
        return "URI Too Long";
    default:
        return "HTTP status " + std::to_string(status);
    }
}

} // namespace fexo::tool
