#include <FeXOPlatform/HTTPURLResponse.hpp>

#include <algorithm>
#include <cctype>
#include <utility>

namespace fexo {

namespace {

bool sameName(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

} // namespace

HTTPURLResponse::HTTPURLResponse(URL url, int statusCode, HTTPHeaderFields headerFields)
    : url_(std::move(url)), statusCode_(statusCode)
{
    for (auto& field : headerFields) {
        auto same = std::find_if(headerFields_.begin(), headerFields_.end(),
                                 [&](const auto& kept) { return sameName(kept.first, field.first); });
        if (same == headerFields_.end())
            headerFields_.push_back(std::move(field));
        else
            same->second += ", " + field.second;
    }
}

std::optional<std::string> HTTPURLResponse::value(const std::string& headerField) const
{
    for (const auto& field : headerFields_)
        if (sameName(field.first, headerField)) return field.second;
    return std::nullopt;
}

} // namespace fexo
