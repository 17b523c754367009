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
    // Never destroyed: the session's thread may still be setting up a transfer while the
    // process's static objects go at exit (this one is made by that thread, after the session's
    // exit handler was registered, so it would go first).
    static const CertificateAuthorityEnvironment* authorities = new CertificateAuthorityEnvironment(read());
    return *authorities;
}

} // namespace fexo
