#include <devserver/RequestValidation.hpp>

#include <devserver/JSONAnswer.hpp>

#include <httplib.h>

namespace fexo::tool {

std::optional<nlohmann::json> requestObject(const httplib::Request& request, httplib::Response& response)
{
    // Invalid UTF-8 fails the parse like any other malformed text.
    nlohmann::json body = nlohmann::json::parse(request.body, nullptr, false);
    if (body.is_object()) return body;
    answerJSON(response, 400, {{"errorMessage", "The request body must be a JSON object"}});
    return std::nullopt;
}

const std::string* RequestValidation::string(const char* key)
{
    const nlohmann::json* value = present(key);
    if (value == nullptr) return nullptr;
    if (!value->is_string()) {
        complain(key, std::string("The ") + key + " field must be a string.");
        return nullptr;
    }
    return &value->get_ref<const std::string&>();
}

std::optional<std::int64_t> RequestValidation::integer(const char* key, std::int64_t low, std::int64_t high,
                                                       const char* names)
{
    const nlohmann::json* value = present(key);
    if (value == nullptr) return std::nullopt;
    if (!value->is_number_integer()) {
        complain(key, std::string("The ") + key + " field must be an integer.");
        return std::nullopt;
    }
    // Unsigned numbers beyond the signed range are out of range too.
    const bool inRange = value->is_number_unsigned()
                             ? value->get<std::uint64_t>() >= static_cast<std::uint64_t>(low) &&
                                   value->get<std::uint64_t>() <= static_cast<std::uint64_t>(high)
                             : value->get<std::int64_t>() >= low && value->get<std::int64_t>() <= high;
    if (!inRange) {
        complain(key, std::string("The ") + key + " field must be " + names + ".");
        return std::nullopt;
    }
    return value->get<std::int64_t>();
}

nlohmann::json RequestValidation::refusal() const
{
    return {{"errorMessage", "Validation failed"}, {"errors", errors_}};
}

const nlohmann::json* RequestValidation::present(const char* key)
{
    const auto found = body_.find(key);
    if (found == body_.end() || found->is_null()) {
        complain(key, std::string("The ") + key + " field is required.");
        return nullptr;
    }
    return &*found;
}

void RequestValidation::complain(const char* key, std::string why)
{
    errors_.push_back({{"field", key}, {"errorMessage", std::move(why)}});
}

} // namespace fexo::tool
