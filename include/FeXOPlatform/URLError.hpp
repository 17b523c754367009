#pragma once

#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/Export.hpp>

#include <optional>
#include <string>

namespace fexo {

// A transport failure of the URL session, in the platform's NSURLErrorDomain: its codes and
// its English descriptions.
class FEXO_EXPORT URLError : public ErrorBase {
public:
    enum Code : int {
        unknown = -1,
        cancelled = -999,
        badURL = -1000,
        timedOut = -1001,
        unsupportedURL = -1002,
        cannotFindHost = -1003,
        cannotConnectToHost = -1004,
        networkConnectionLost = -1005,
        httpTooManyRedirects = -1007,
        notConnectedToInternet = -1009,
        badServerResponse = -1011,
        userAuthenticationRequired = -1013,
        cannotDecodeContentData = -1016,
        cannotParseResponse = -1017,
        dataLengthExceedsMaximum = -1103,
        secureConnectionFailed = -1200,
        serverCertificateHasBadDate = -1201,
        serverCertificateUntrusted = -1202,
        serverCertificateHasUnknownRoot = -1203,
        serverCertificateNotYetValid = -1204,
        clientCertificateRejected = -1205,
        clientCertificateRequired = -1206,
    };

    static constexpr const char* domain = NSURLErrorDomain.data();

    URLError(Code code, std::optional<std::string> failingURL);

    // The error for a transfer that libcurl ended with `curlCode` (a CURLcode). `osErrno` is
    // the system error of a failed connect, `sslVerifyResult` the X.509 verification result
    // of a refused peer certificate; both are 0 when unknown.
    static URLError fromCurl(int curlCode, std::optional<std::string> failingURL, long osErrno = 0,
                             long sslVerifyResult = 0);

    Code code() const { return code_; }
    const std::optional<std::string>& failingURL() const { return failingURL_; }

    std::string_view errorDomain() const override { return NSURLErrorDomain; }
    std::int64_t errorCode() const override { return code_; }

    std::string localizedDescription() const override;
    // `Error Domain=NSURLErrorDomain Code=<code> "<description>" UserInfo={NSErrorFailingURLStringKey=<url>,`
    // `NSLocalizedDescription=<description>}`; the URL entry is left out when there is none.
    std::string description() const override;

private:
    Code code_;
    std::optional<std::string> failingURL_;
};

} // namespace fexo
