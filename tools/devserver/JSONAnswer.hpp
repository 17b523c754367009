#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace httplib {
struct Response;
} // namespace httplib

namespace fexo::tool {

// Every answer of the development server is compact JSON, with a charset in its type so that
// the HTTP layer leaves it uncompressed and logs show the bytes as written.
void answerJSON(httplib::Response& response, int status, const nlohmann::json& body);

// The text of {"errorMessage": …} for a refusal of the HTTP layer itself (404, 413, ...).
std::string reasonPhrase(int status);

} // namespace fexo::tool
