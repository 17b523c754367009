#include <common/DeliveredContent.hpp>

#include <nlohmann/json.hpp>

namespace fexo::tool {

std::optional<DeliveredContent> printedContent(std::string_view output)
{
    while (!output.empty() && (output.back() == '\n' || output.back() == '\r' || output.back() == ' '))
        output.remove_suffix(1);
    const auto start = output.find_last_of('\n');
    const auto line = start == std::string_view::npos ? output : output.substr(start + 1);
    const auto content = nlohmann::json::parse(line, nullptr, false);
    if (!content.is_object()) return std::nullopt;
    const auto title = content.find("title");
    const auto body = content.find("body");
    const auto rewritten = content.find("rewritten");
    const auto id = content.find("id");
    if (title == content.end() || !title->is_string() || body == content.end() || !body->is_string() ||
        rewritten == content.end() || !rewritten->is_boolean() ||
        (id != content.end() && !id->is_string() && !id->is_null()))
        return std::nullopt;
    return DeliveredContent{title->get<std::string>(), body->get<std::string>(), rewritten->get<bool>(),
                            id != content.end() && id->is_string() ? std::optional(id->get<std::string>())
                                                                   : std::nullopt};
}

std::string deliveredContentJSON(const DeliveredContent& content)
{
    nlohmann::ordered_json line;
    line["title"] = content.title;
    line["body"] = content.body;
    line["rewritten"] = content.rewritten;
    line["id"] = content.id ? nlohmann::ordered_json(*content.id) : nlohmann::ordered_json();
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace fexo::tool
