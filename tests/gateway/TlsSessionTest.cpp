// This unit's side of a TLS session.
#include "TlsSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <filesystem>
#include <fstream>

#include "CertificateMaker.h"
#include "StandardInput.h"

namespace {

using testing::HasSubstr;

// Whatever the system's own settings of OpenSSL say.
TEST(TTlsContext, HoldsPeersToItsRules) {
    CertificateMaker certificates;
    const TTlsContext context(certificates.Unit("unit"));
    EXPECT_EQ(SSL_CTX_get_min_proto_version(context.Get()), TLS1_2_VERSION);
    EXPECT_EQ(SSL_CTX_get_verify_mode(context.Get()),
              SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT);
    EXPECT_EQ(SSL_CTX_get_verify_depth(context.Get()), 3);
    EXPECT_EQ(SSL_CTX_get_session_cache_mode(context.Get()), SSL_SESS_CACHE_OFF);
}

TEST(TTlsContext, SaysWhichFileIsWrong) {
    CertificateMaker certificates;
    const auto error = [](const std::string& directory) {
        try {
            const TTlsContext context(directory);
        } catch (const std::runtime_error& failure) {
            return std::string(failure.what());
        }
        return std::string();
    };
    EXPECT_THAT(error("/nonexistent"), HasSubstr("/nonexistent/ostel.cert.pem: "));
    EXPECT_THAT(error(certificates.WrongKey("wrong")), HasSubstr("ostel.key.pem: "));
    const std::string unit = certificates.Unit("unit");
    EXPECT_EQ(error(unit), "");
    const std::string root = unit + "ostelRoot.cert.pem";
    std::filesystem::remove(root);
    EXPECT_THAT(error(unit), HasSubstr("ostelRoot.cert.pem: "));
    std::ofstream(root) << "-----BEGIN CERTIFICATE-----\nAAAA\n";
    EXPECT_THAT(error(unit), HasSubstr("ostelRoot.cert.pem: "));
    std::filesystem::remove(root);
    std::filesystem::create_directory(root);
    EXPECT_THAT(error(unit), HasSubstr("ostelRoot.cert.pem: "));
}

TEST(TTlsContext, AsksNobodyForAPassPhrase) {
    CertificateMaker certificates;
    const std::string directory = certificates.KeyWithPassPhrase("locked", "secret");
    TypeOnStandardInput("secret\n");
    EXPECT_THROW(TTlsContext{directory}, std::runtime_error);
}

}  // namespace
