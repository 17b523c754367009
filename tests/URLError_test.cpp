#include <FeXOPlatform/URLError.hpp>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace {

using fexo::URLError;

TEST(URLError, CurlCodesMapToThePlatformCodes)
{
    const struct {
        CURLcode curl;
        long osErrno;
        long verify;
        URLError::Code expected;
    } cases[] = {
        {CURLE_COULDNT_CONNECT, ECONNREFUSED, 0, URLError::cannotConnectToHost},
        {CURLE_COULDNT_CONNECT, ENETUNREACH, 0, URLError::notConnectedToInternet},
        {CURLE_COULDNT_RESOLVE_HOST, 0, 0, URLError::cannotFindHost},
        {CURLE_OPERATION_TIMEDOUT, 0, 0, URLError::timedOut},
        {CURLE_PARTIAL_FILE, 0, 0, URLError::networkConnectionLost},
        {CURLE_WEIRD_SERVER_REPLY, 0, 0, URLError::badServerResponse},
        {CURLE_TOO_MANY_REDIRECTS, 0, 0, URLError::httpTooManyRedirects},
        {CURLE_URL_MALFORMAT, 0, 0, URLError::badURL},
        {CURLE_UNSUPPORTED_PROTOCOL, 0, 0, URLError::unsupportedURL},
        {CURLE_BAD_CONTENT_ENCODING, 0, 0, URLError::cannotDecodeContentData},
        {CURLE_FILESIZE_EXCEEDED, 0, 0, URLError::dataLengthExceedsMaximum},
        {CURLE_LOGIN_DENIED, 0, 0, URLError::userAuthenticationRequired},
        {CURLE_SSL_CONNECT_ERROR, 0, 0, URLError::secureConnectionFailed},
        {CURLE_SSL_CLIENTCERT, 0, 0, URLError::clientCertificateRequired},
        {CURLE_SSL_CERTPROBLEM, 0, 0, URLError::clientCertificateRejected},
        {CURLE_SSL_ISSUER_ERROR, 0, 0, URLError::serverCertificateUntrusted},
        {CURLE_PEER_FAILED_VERIFICATION, 0, 10, URLError::serverCertificateHasBadDate},
        {CURLE_PEER_FAILED_VERIFICATION, 0, 9, URLError::serverCertificateNotYetValid},
        {CURLE_PEER_FAILED_VERIFICATION, 0, 0, URLError::serverCertificateUntrusted},
        {CURLE_ABORTED_BY_CALLBACK, 0, 0, URLError::cancelled},
        {CURLE_OUT_OF_MEMORY, 0, 0, URLError::unknown},
    };
    for (const auto& c : cases)
        EXPECT_EQ(URLError::fromCurl(c.curl, std::nullopt, c.osErrno, c.verify).code(), c.expected)
            << curl_easy_strerror(c.curl);
}

TEST(URLError, DescriptionsAreThePlatformsEnglishOnesWithTheFailingURL)
{
    EXPECT_EQ(URLError(URLError::cannotConnectToHost, "http://127.0.0.1:9/api").description(),
              "Error Domain=NSURLErrorDomain Code=-1004 \"Could not connect to the server.\" "
              "UserInfo={NSErrorFailingURLStringKey=http://127.0.0.1:9/api, NSLocalizedDescription=Could not "
              "connect to the server.}");
    EXPECT_EQ(
        URLError(URLError::timedOut, std::nullopt).description(),
        "Error Domain=NSURLErrorDomain Code=-1001 \"The request timed out.\" UserInfo={NSLocalizedDescription=The "
        "request timed out.}");
    EXPECT_EQ(URLError(URLError::serverCertificateUntrusted, "https://127.0.0.1:4443/").localizedDescription(),
              "The certificate for this server is invalid. You might be connecting to a server that is pretending to "
              "be \u201c127.0.0.1\u201d which could put your confidential information at risk.");
    EXPECT_EQ(URLError(URLError::clientCertificateRequired, "https://h/").localizedDescription(),
              "The server \u201ch\u201d requires a client certificate.");
    for (auto code :
         {URLError::cancelled, URLError::badURL, URLError::unsupportedURL, URLError::cannotFindHost,
          URLError::networkConnectionLost, URLError::httpTooManyRedirects, URLError::notConnectedToInternet,
          URLError::badServerResponse, URLError::userAuthenticationRequired, URLError::cannotDecodeContentData,
          URLError::cannotParseResponse, URLError::dataLengthExceedsMaximum, URLError::secureConnectionFailed,
          URLError::serverCertificateHasBadDate, URLError::serverCertificateHasUnknownRoot,
          URLError::serverCertificateNotYetValid, URLError::clientCertificateRejected})
        EXPECT_NE(URLError(code, {}).localizedDescription(), URLError(URLError::unknown, {}).localizedDescription())
            << code;

    fexo::Error erased = URLError(URLError::networkConnectionLost, "http://h/");
    ASSERT_NE(erased.as<URLError>(), nullptr);
    EXPECT_EQ(erased.as<URLError>()->failingURL(), "http://h/");
    EXPECT_EQ(erased.localizedDescription(), "The network connection was lost.");
}

} // namespace
