#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace httplib {
struct Request;
struct Response;
} // namespace httplib

namespace fexo::tool {

// The request body as a JSON object; otherwise nothing, after answering 400
// {"errorMessage":"The request body must be a JSON object"}.
std::optional<nlohmann::json> requestObject(const httplib::Request& request, httplib::Response& response);

// Checks the keys of one request body, collecting one complaint per failing key, in the order
// asked. A key that is absent or null is "required".
class RequestValidation {
public:
    explicit RequestValidation(const nlohmann::json& body) : body_(body) { }

    // The key's text, or nothing (and a complaint) when it is not a string.
    const std::string* string(const char* key);
    // An integer from `low` to `high`; `names` says what the allowed values mean.
    std::optional<std::int64_t> integer(const char* key, std::int64_t low, std::int64_t high, const char* names);

    bool passed() const { return errors_.empty(); }
    // 400's body: {"errorMessage":"Validation failed","errors":[{"field":…,"errorMessage":…},…]}.
    nlohmann::json refusal() const;

private:
    const nlohmann::json* present(const char* key);
    void complain(const char* key, std::string why);

    const nlohmann::json& body_;
    nlohmann::json errors_ = nlohmann::json::array();
};

} // namespace fexo::tool
