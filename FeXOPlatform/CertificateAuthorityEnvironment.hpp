#pragma once

#include <optional>
#include <string>

namespace fexo {

// Internal. The certificate authorities that the environment names for verifying servers, read
// as OpenSSL's own tools read them: SSL_CERT_FILE, a PEM file, replaces the CA file, and
// SSL_CERT_DIR, a directory of certificates under their hashed names (`openssl rehash`; several
// directories separated by ':'), replaces the CA directory. Each replaces only its own: with
// SSL_CERT_FILE alone the default directory is still searched. An unset or empty variable leaves
// the default. A set-user-ID or set-group-ID process reads neither (secure_getenv).
struct CertificateAuthorityEnvironment {
    std::optional<std::string> file;
    std::optional<std::string> directory;

    // Reads the variables now. Not safe against a setenv in another thread.
    static CertificateAuthorityEnvironment read();
    // read() once, at the first call in the process (thread-safe); every later call, and so every
    // transfer of every session, sees the same authorities whatever the environment became.
    static const CertificateAuthorityEnvironment& ofProcess();
};

} // namespace fexo
