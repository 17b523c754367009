#include <FeXOPlatform/URLRequest.hpp>

#include <algorithm>
#include <cctype>

namespace fexo {

bool headerNamesEqual(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

URLRequest::URLRequest(URL url, CachePolicy cachePolicy, double timeoutInterval)
    : url_(std::move(url)), cachePolicy_(cachePolicy), timeoutInterval_(timeoutInterval)
{
}

void URLRequest::setAllHTTPHeaderFields(HTTPHeaderFields fields)
{
    headerFields_.clear();
    for (auto& [name, value] : fields) setValue(std::move(value), name);
}

void URLRequest::setValue(std::string value, const std::string& headerField)
{
    for (auto& field : headerFields_) {
        if (headerNamesEqual(field.first, headerField)) {
            field.second = std::move(value);
            return;
        }
    }
    headerFields_.emplace_back(headerField, std::move(value));
}

std::optional<std::string> URLRequest::value(const std::string& headerField) const
{
    for (const auto& field : headerFields_)
        if (headerNamesEqual(field.first, headerField)) return field.second;
    return std::nullopt;
}

} // namespace fexo
