#include <FeXOPlatform/HTTPURLResponse.hpp>

#include <algorithm>
#include <cctype>
#include <utility>

namespace fexo {

HTTPURLResponse::HTTPURLResponse(URL url, int statusCode, HTTPHeaderFields headerFields)
    : url_(std::move(url)), statusCode_(statusCode)
{
    for (auto& field : headerFields) {
        auto same = std::find_if(headerFields_.begin(), headerFields_.end(),
                                 [&](const auto& kept) { return headerNamesEqual(kept.first, field.first); });
        if (same == headerFields_.end())
            headerFields_.push_back(std::move(field));
        else
            same->second += ", " + field.second;
    }
}

std::optional<std::string> HTTPURLResponse::value(const std::string& headerField) const
{
    for (const auto& field : headerFields_)
        if (headerNamesEqual(field.first, headerField)) return field.second;
    return std::nullopt;
}

} // namespace fexo
