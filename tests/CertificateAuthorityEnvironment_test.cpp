// Trusting a private certificate authority through SSL_CERT_FILE and SSL_CERT_DIR: read as
// OpenSSL's tools read them, and honoured by every transfer of a process (here `fexo register`,
// run as its own process with the variables in its environment).
#include <support/LoopbackServer.hpp>
#include <support/TemporaryDirectory.hpp>
#include <support/ToolSandbox.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace {

// An authority of the test's own, and a certificate for 127.0.0.1 that it signed, made with the
// openssl tool; the authority also in a directory prepared by `openssl rehash`, and alone in one
// that was not.
struct PrivateAuthority {
    fexo::test::TemporaryDirectory directory;
    std::filesystem::path file = directory.path() / "authority.pem";
    std::filesystem::path hashedDirectory = directory.path() / "hashed";
    std::filesystem::path unhashedDirectory = directory.path() / "unhashed";
    fexo::test::LoopbackServer::TLS server{(directory.path() / "server.pem").string(),
                                           (directory.path() / "server.key").string()};

    PrivateAuthority()
    {
        const std::string in = "cd '" + directory.path().string() + "' && ";
        std::ofstream(directory.path() / "server.ext")
            << "subjectAltName=IP:127.0.0.1\nbasicConstraints=CA:FALSE\nextendedKeyUsage=serverAuth\n";
        const std::string commands =
            in + "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
                 "-subj '/CN=FeXO test authority' -keyout authority.key -out authority.pem && "
                 "openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=127.0.0.1 "
                 "-keyout server.key -out server.csr && "
                 "openssl x509 -req -in server.csr -CA authority.pem -CAkey authority.key -CAcreateserial "
                 "-days 2 -extfile server.ext -out server.pem && "
                 "mkdir hashed unhashed && cp authority.pem hashed/ && cp authority.pem unhashed/ && "
                 "openssl rehash hashed";
        if (std::system(("(" + commands + ") >/dev/null 2>&1").c_str()) != 0)
            throw std::runtime_error("openssl could not make the test's authority");
    }
};

TEST(CertificateAuthorityEnvironment, AServerThatAPrivateAuthoritySignedIsTrustedOnlyThroughTheVariables)
{
    PrivateAuthority authority;
    fexo::test::LoopbackServer server({.tls = &authority.server});
    server.setHandler(
        [](const httplib::Request&, httplib::Response& response) { response.set_content("{}", "application/json"); });
    // The sandbox runs fexo through env(1), so that each run has exactly the variables it names.
    fexo::test::ToolSandbox sandbox("/usr/bin/env");
    sandbox.configure(server.baseURL());
    const auto registerWith = [&](std::vector<std::string> variables) {
        std::vector<std::string> arguments{"-u", "SSL_CERT_FILE", "-u", "SSL_CERT_DIR"};
        arguments.insert(arguments.end(), variables.begin(), variables.end());
        for (const char* word : {FEXO_TOOL_PATH, "register", "--token", "t", "--device-id", "d", "--provider", "fcm",
                                 "--time-limit", "20"})
            arguments.emplace_back(word);
        return sandbox.run(arguments);
    };
    const std::string refused = "fexo: The certificate for this server is invalid.";

    for (const auto& variables : std::vector<std::vector<std::string>>{
             {}, {"SSL_CERT_FILE="}, {"SSL_CERT_DIR=" + authority.unhashedDirectory.string()}}) {
        const auto result = registerWith(variables);
        EXPECT_EQ(result.exitCode, 1) << (variables.empty() ? "" : variables[0]);
        EXPECT_EQ(result.standardError.rfind(refused, 0), 0u) << result.standardError;
    }
    EXPECT_TRUE(server.requests().empty());

    for (const auto& variables :
         std::vector<std::vector<std::string>>{{"SSL_CERT_FILE=" + authority.file.string()},
                                               {"SSL_CERT_DIR=/nonexistent:" + authority.hashedDirectory.string()}}) {
        const auto result = registerWith(variables);
        EXPECT_EQ(result.exitCode, 0) << variables[0] << ": " << result.standardError;
        EXPECT_EQ(result.standardOutput, "{}\n");
    }
    EXPECT_EQ(server.requests().size(), 2u);

    // A file that cannot be read is a failure, never the system's authorities in its place.
    const auto missing = registerWith({"SSL_CERT_FILE=" + (authority.directory.path() / "none.pem").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.standardError.rfind("fexo: ", 0), 0u) << missing.standardError;
}

} // namespace
