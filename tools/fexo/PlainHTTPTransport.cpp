#include <fexo/PlainHTTPTransport.hpp>

#include <FeXOPlatform/URL.hpp>

#include <openssl/ssl.h>

#include <array>
#include <cstdlib>

namespace fexo::tool {

namespace {

// Any of these may route a plain-HTTP request through a proxy spoken to over TLS.
bool proxyNamed()
{
    constexpr std::array names{"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"};
    for (const char* name : names) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') return true;
    }
    return false;
}

} // namespace

void startTransportForOrigin(const std::string& baseURL)
{
    const auto url = URL::fromString(baseURL);
    if (!url || url->scheme() != "http" || proxyNamed()) return;
    // Each part of OpenSSL's start runs once per process, in whichever form is asked for first:
    // libcurl's own start later finds these parts done and skips them. The tables of cipher and
    // digest names are not filled (only a TLS handshake would look there), and there is no
    // clean-up at exit: it only frees memory that the process's end gives back anyway.
    OPENSSL_init_ssl(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_LOAD_SSL_STRINGS |
                         OPENSSL_INIT_NO_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_NO_ADD_ALL_CIPHERS |
                         OPENSSL_INIT_NO_ADD_ALL_DIGESTS | OPENSSL_INIT_NO_ATEXIT,
                     nullptr);
}

} // namespace fexo::tool
