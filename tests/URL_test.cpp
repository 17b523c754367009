#include <FeXOPlatform/HTTPURLResponse.hpp>
#include <FeXOPlatform/URL.hpp>
#include <FeXOPlatform/URLError.hpp>
#include <FeXOPlatform/URLRequest.hpp>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

using fexo::URL;
using fexo::URLError;

TEST(URL, AbsoluteTextsWithSchemeAndHostAreKeptAsGiven)
{
    for (const char* text : {"https://api.example.com", "http://127.0.0.1:8080/api//Registration/RegisterNewDevice",
                             "https://example.com/v2/api/Notification/GetNotificationContent?x=1#f",
                             "HTTPS://Example.COM/Path", "custom-scheme://host/path"}) {
        SCOPED_TRACE(text);
        auto url = URL::fromString(text);
        ASSERT_TRUE(url.has_value());
        EXPECT_EQ(url->absoluteString(), text);
    }
    EXPECT_EQ(URL::fromString("HTTPS://Example.COM/Path")->scheme(), "https");
}

TEST(URL, TextsTheParserRefusesAreNotURLs)
{
    for (const std::string& text : std::vector<std::string>{"", "https://exa mple.com", "https://example.com/a b", " https://example.com",
                                   "/api/Registration", "example.com/path", "https://", "mailto:someone@example.com",
                                   "https://example.com/\n", std::string("https://example.com/\0x", 22)}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(URL::fromString(text).has_value());
    }
}

TEST(URLRequest, DefaultsAndHeaderFieldsReplacedAtOnce)
{
    fexo::URLRequest request(*URL::fromString("https://example.com/x"));
    EXPECT_EQ(request.httpMethod(), "GET");
    EXPECT_EQ(request.timeoutInterval(), 60.0);
    EXPECT_FALSE(request.httpBody().has_value());
    EXPECT_EQ(static_cast<int>(fexo::URLRequest::CachePolicy::reloadIgnoringLocalAndRemoteCacheData), 4);

    request.setValue("old", "X-Old");
    request.setAllHTTPHeaderFields({{"Content-Type", "text/plain"}, {"client_id", "a"}, {"content-type", "application/json"}});
    EXPECT_EQ(request.allHTTPHeaderFields(),
              (fexo::HTTPHeaderFields{{"Content-Type", "application/json"}, {"client_id", "a"}}));
    EXPECT_FALSE(request.value("x-old").has_value());
    EXPECT_EQ(request.value("CLIENT_ID"), "a");
}

TEST(HTTPURLResponse, RepeatedFieldsAreJoined)
{
    fexo::HTTPURLResponse response(*URL::fromString("http://h/"), 200, {{"Set", "a"}, {"X", "1"}, {"set", "b"}});
    EXPECT_EQ(response.value("SET"), "a, b");
    EXPECT_EQ(response.allHeaderFields().size(), 2u);
}

TEST(URLError, CurlCodesMapToThePlatformCodes)
{
    struct Case { CURLcode curl; long osErrno; long verify; URLError::Code expected; };
    const Case cases[] = {
        {CURLE_COULDNT_CONNECT, ECONNREFUSED, 0, URLError::cannotConnectToHost},
        {CURLE_COULDNT_CONNECT, ENETUNREACH, 0, URLError::notConnectedToInternet},
        {CURLE_COULDNT_RESOLVE_HOST, 0, 0, URLError::cannotFindHost},
        {CURLE_OPERATION_TIMEDOUT, 0, 0, URLError::timedOut},
        {CURLE_PARTIAL_FILE, 0, 0, URLError::networkConnectionLost},
        {CURLE_RECV_ERROR, 0, 0, URLError::networkConnectionLost},
        {CURLE_GOT_NOTHING, 0, 0, URLError::networkConnectionLost},
        {CURLE_WEIRD_SERVER_REPLY, 0, 0, URLError::badServerResponse},
        {CURLE_TOO_MANY_REDIRECTS, 0, 0, URLError::httpTooManyRedirects},
        {CURLE_URL_MALFORMAT, 0, 0, URLError::badURL},
        {CURLE_UNSUPPORTED_PROTOCOL, 0, 0, URLError::unsupportedURL},
        {CURLE_SSL_CONNECT_ERROR, 0, 0, URLError::secureConnectionFailed},
        {CURLE_PEER_FAILED_VERIFICATION, 18, 0, URLError::serverCertificateUntrusted},
        {CURLE_PEER_FAILED_VERIFICATION, 0, 10, URLError::serverCertificateHasBadDate},
        {CURLE_PEER_FAILED_VERIFICATION, 0, 9, URLError::serverCertificateNotYetValid},
        {CURLE_PEER_FAILED_VERIFICATION, 0, 0, URLError::serverCertificateUntrusted},
        {CURLE_ABORTED_BY_CALLBACK, 0, 0, URLError::cancelled},
        {CURLE_OUT_OF_MEMORY, 0, 0, URLError::unknown},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(curl_easy_strerror(c.curl));
        EXPECT_EQ(URLError::fromCurl(c.curl, std::nullopt, c.osErrno, c.verify).code(), c.expected);
    }
}

TEST(URLError, DescriptionsAreThePlatformsEnglishOnes)
{
    const URLError refused(URLError::cannotConnectToHost, "http://127.0.0.1:9/api");
    EXPECT_EQ(refused.localizedDescription(), "Could not connect to the server.");
    EXPECT_EQ(refused.description(),
              "Error Domain=NSURLErrorDomain Code=-1004 \"Could not connect to the server.\" "
              "UserInfo={NSErrorFailingURLStringKey=http://127.0.0.1:9/api, NSLocalizedDescription=Could not "
              "connect to the server.}");
    EXPECT_EQ(URLError(URLError::timedOut, std::nullopt).description(),
              "Error Domain=NSURLErrorDomain Code=-1001 \"The request timed out.\" UserInfo={NSLocalizedDescription=The "
              "request timed out.}");
    EXPECT_EQ(URLError(URLError::notConnectedToInternet, {}).localizedDescription(),
              "The Internet connection appears to be offline.");
    EXPECT_EQ(URLError(URLError::serverCertificateUntrusted, "https://127.0.0.1:4443/").localizedDescription(),
              "The certificate for this server is invalid. You might be connecting to a server that is pretending to "
              "be \u201c127.0.0.1\u201d which could put your confidential information at risk.");

    fexo::Error erased = URLError(URLError::networkConnectionLost, "http://h/");
    ASSERT_NE(erased.as<URLError>(), nullptr);
    EXPECT_EQ(erased.as<URLError>()->failingURL(), "http://h/");
    EXPECT_EQ(erased.localizedDescription(), "The network connection was lost.");
}

} // namespace
