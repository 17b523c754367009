#pragma once

#include <FeXOPlatform/Export.hpp>
#include <FeXOPlatform/URL.hpp>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fexo {

// Header fields in the order they were set. Names are compared without regard to case.
using HTTPHeaderFields = std::vector<std::pair<std::string, std::string>>;

// Header field names compare without regard to ASCII case.
FEXO_EXPORT bool headerNamesEqual(const std::string& a, const std::string& b);

// A value describing one HTTP request: URL, method, header fields, body, cache policy and
// idle timeout. Building it does nothing on the network.
class FEXO_EXPORT URLRequest {
public:
    // The platform's values; the session keeps no cache, so every policy loads from the network.
    enum class CachePolicy : int {
        useProtocolCachePolicy = 0,
        reloadIgnoringLocalCacheData = 1,
        returnCacheDataElseLoad = 2,
        returnCacheDataDontLoad = 3,
        reloadIgnoringLocalAndRemoteCacheData = 4,
        reloadRevalidatingCacheData = 5,
    };

    static constexpr double defaultTimeoutInterval = 60.0;

    explicit URLRequest(URL url, CachePolicy cachePolicy = CachePolicy::useProtocolCachePolicy,
                        double timeoutInterval = defaultTimeoutInterval);

    const URL& url() const { return url_; }
    void setURL(URL url) { url_ = std::move(url); }

    // "GET" unless set.
    const std::string& httpMethod() const { return httpMethod_; }
    void setHTTPMethod(std::string method) { httpMethod_ = std::move(method); }

    const HTTPHeaderFields& allHTTPHeaderFields() const { return headerFields_; }
    // Replaces every header field. Of several fields whose names differ only in case, the
    // last one given is kept, at the place of the first.
    void setAllHTTPHeaderFields(HTTPHeaderFields fields);
    // Sets one field, replacing a field of the same name.
    void setValue(std::string value, const std::string& headerField);
    std::optional<std::string> value(const std::string& headerField) const;

    const std::optional<std::string>& httpBody() const { return httpBody_; }
    void setHTTPBody(std::optional<std::string> body) { httpBody_ = std::move(body); }

    CachePolicy cachePolicy() const { return cachePolicy_; }
    void setCachePolicy(CachePolicy policy) { cachePolicy_ = policy; }

    // Seconds without any byte sent or received (connecting included) after which the
    // transfer ends with a time-out error. Not a limit on the whole transfer.
    double timeoutInterval() const { return timeoutInterval_; }
    void setTimeoutInterval(double seconds) { timeoutInterval_ = seconds; }

    friend bool operator==(const URLRequest&, const URLRequest&) = default;

private:
    URL url_;
    std::string httpMethod_ = "GET";
    HTTPHeaderFields headerFields_;
    std::optional<std::string> httpBody_;
    CachePolicy cachePolicy_;
    double timeoutInterval_;
};

} // namespace fexo
