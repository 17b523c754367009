#include <FeXOPlatform/CertificateAuthorityEnvironment.hpp>

#include <cstdlib>

namespace fexo {

namespace {

std::optional<std::string> variable(const char* name)
{
    const char* value = ::secure_getenv(name);
    if (value == nullptr || *value == '\0') return std::nullopt;
    return std::string(value);
}

} // namespace

CertificateAuthorityEnvironment CertificateAuthorityEnvironment::read()
{
    return {variable("SSL_CERT_FILE"), variable("SSL_CERT_DIR")};
}

const CertificateAuthorityEnvironment& CertificateAuthorityEnvironment::ofProcess()
{
    static const CertificateAuthorityEnvironment authorities = read();
    return authorities;
}

} // namespace fexo
