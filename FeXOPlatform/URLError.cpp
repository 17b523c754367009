#include <FeXOPlatform/URL.hpp>
#include <FeXOPlatform/URLError.hpp>

#include <curl/curl.h>

#include <cerrno>
#include <utility>

namespace fexo {

namespace {

// X.509 verification results (OpenSSL's X509_V_ERR_*) that have a code of their own.
constexpr long certificateNotYetValid = 9;
constexpr long certificateHasExpired = 10;

URLError::Code peerVerificationCode(long sslVerifyResult)
{
    switch (sslVerifyResult) {
    case certificateHasExpired:
        return URLError::serverCertificateHasBadDate;
    case certificateNotYetValid:
        return URLError::serverCertificateNotYetValid;
    // Self-signed, unknown issuer, broken chain and a name that does not match the host
    // (reported with result 0) are all an untrusted certificate.
    default:
        return URLError::serverCertificateUntrusted;
    }
}

URLError::Code codeForCurl(int curlCode, long osErrno, long sslVerifyResult)
{
    switch (static_cast<CURLcode>(curlCode)) {
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_NOT_BUILT_IN:
        return URLError::unsupportedURL;
    case CURLE_URL_MALFORMAT:
        return URLError::badURL;
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
        return URLError::cannotFindHost;
    case CURLE_COULDNT_CONNECT:
        // No route out of this machine at all is "offline"; a host that refuses or cannot
        // be reached is a failed connection.
        return osErrno == ENETUNREACH || osErrno == ENETDOWN ? URLError::notConnectedToInternet
                                                             : URLError::cannotConnectToHost;
    case CURLE_PROXY:
    case CURLE_QUIC_CONNECT_ERROR:
        return URLError::cannotConnectToHost;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_RANGE_ERROR:
        return URLError::badServerResponse;
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_HTTP3:
        return URLError::networkConnectionLost;
    case CURLE_OPERATION_TIMEDOUT:
        return URLError::timedOut;
    case CURLE_TOO_MANY_REDIRECTS:
        return URLError::httpTooManyRedirects;
    case CURLE_ABORTED_BY_CALLBACK:
        return URLError::cancelled;
    case CURLE_BAD_CONTENT_ENCODING:
        return URLError::cannotDecodeContentData;
    case CURLE_FILESIZE_EXCEEDED:
        return URLError::dataLengthExceedsMaximum;
    case CURLE_LOGIN_DENIED:
    case CURLE_AUTH_ERROR:
        return URLError::userAuthenticationRequired;
    case CURLE_PEER_FAILED_VERIFICATION:
        return peerVerificationCode(sslVerifyResult);
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
        return URLError::serverCertificateUntrusted;
    case CURLE_SSL_CLIENTCERT:
        return URLError::clientCertificateRequired;
    case CURLE_SSL_CERTPROBLEM:
        return URLError::clientCertificateRejected;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_CIPHER:
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        return URLError::secureConnectionFailed;
    default:
        // Local failures (memory, a refused write, internal errors) and codes of other protocols.
        return URLError::unknown;
    }
}

std::string certificateWarning(const char* opening, const std::optional<std::string>& failingURL)
{
    std::string host;
    if (failingURL)
        if (auto url = URL::fromString(*failingURL)) host = url->host();
    return std::string(opening) + " You might be connecting to a server that is pretending to be \u201c" + host +
           "\u201d which could put your confidential information at risk.";
}

std::string hostOf(const std::optional<std::string>& failingURL)
{
    if (failingURL)
        if (auto url = URL::fromString(*failingURL)) return url->host();
    return {};
}

} // namespace

URLError::URLError(Code code, std::optional<std::string> failingURL) : code_(code), failingURL_(std::move(failingURL))
{
}

URLError URLError::fromCurl(int curlCode, std::optional<std::string> failingURL, long osErrno, long sslVerifyResult)
{
    return URLError(codeForCurl(curlCode, osErrno, sslVerifyResult), std::move(failingURL));
}

std::string URLError::localizedDescription() const
{
    switch (code_) {
    case cancelled:
        return "cancelled";
    case badURL:
        return "bad URL";
    case timedOut:
        return "The request timed out.";
    case unsupportedURL:
        return "unsupported URL";
    case cannotFindHost:
        return "A server with the specified hostname could not be found.";
    case cannotConnectToHost:
        return "Could not connect to the server.";
    case networkConnectionLost:
        return "The network connection was lost.";
    case httpTooManyRedirects:
        return "too many HTTP redirects";
    case notConnectedToInternet:
        return "The Internet connection appears to be offline.";
    case badServerResponse:
        return "bad server response";
    case userAuthenticationRequired:
        return "The operation couldn\u2019t be completed. (NSURLErrorDomain error -1013.)";
    case cannotDecodeContentData:
        return "cannot decode content data";
    case cannotParseResponse:
        return "cannot parse response";
    case dataLengthExceedsMaximum:
        return "resource exceeds maximum size";
    case secureConnectionFailed:
        return "An SSL error has occurred and a secure connection to the server cannot be made.";
    case serverCertificateHasBadDate:
        return certificateWarning("The certificate for this server has expired.", failingURL_);
    case serverCertificateUntrusted:
        return certificateWarning("The certificate for this server is invalid.", failingURL_);
    case serverCertificateHasUnknownRoot:
        return certificateWarning("The certificate for this server was signed by an unknown certifying authority.",
                                  failingURL_);
    case serverCertificateNotYetValid:
        return certificateWarning("The certificate for this server is not yet valid.", failingURL_);
    case clientCertificateRejected:
        return "The server \u201c" + hostOf(failingURL_) + "\u201d did not accept the certificate.";
    case clientCertificateRequired:
        return "The server \u201c" + hostOf(failingURL_) + "\u201d requires a client certificate.";
    case unknown:
        break;
    }
    return "unknown error";
}

std::string URLError::description() const
{
    const std::string text = localizedDescription();
    std::string out = std::string("Error Domain=") + domain + " Code=" + std::to_string(static_cast<int>(code_)) +
                      " \"" + text + "\" UserInfo={";
    if (failingURL_) out += "NSErrorFailingURLStringKey=" + *failingURL_ + ", ";
    out += "NSLocalizedDescription=" + text + "}";
    return out;
}

} // namespace fexo
