#pragma once

#include <FeXOPlatform/Export.hpp>

#include <optional>
#include <string>

namespace fexo {

// An absolute URL. A text is a URL when libcurl's URL parser accepts it as an absolute URL
// with a scheme and a host; blanks, control characters and other texts the parser refuses
// are not URLs. The text is kept exactly as given: nothing is normalised or escaped.
class FEXO_EXPORT URL {
public:
    // The URL for the text, or nothing when the text is not a URL.
    static std::optional<URL> fromString(std::string text);

    const std::string& absoluteString() const { return text_; }
    // Lower-case scheme and host as the parser reads them ("https", "example.com").
    const std::string& scheme() const { return scheme_; }
    const std::string& host() const { return host_; }

    friend bool operator==(const URL& a, const URL& b) { return a.text_ == b.text_; }

private:
    URL(std::string text, std::string scheme, std::string host);

    std::string text_;
    std::string scheme_;
    std::string host_;
};

} // namespace fexo
