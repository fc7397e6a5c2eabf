// The script that makes certificates for a desk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "CliFixture.h"
#include "TempDir.h"

namespace {

using testing::HasSubstr;

class MakeCerts : public testing::Test {
protected:
    TFinished Make(const std::string& unit) {
        return RunProgram({OSTEL_MAKE_CERTS, m_Dir.File("certs"), unit});
    }

    std::string File(const std::string& name) { return m_Dir.File("certs") + "/" + name; }

    TempDir m_Dir;
};

TEST_F(MakeCerts, MakesUnitsThatTrustEachOther) {
    for (const char* unit : {"a", "b"}) {
        const TFinished made = Make(unit);
        ASSERT_EQ(made.status, 0) << made.errors;
        EXPECT_EQ(made.output + made.errors, "");
        const TFinished verified =
            RunProgram({"openssl", "verify", "-x509_strict", "-purpose", "sslserver", "-CAfile",
                        File("a/ostelRoot.cert.pem"), File(unit + std::string("/ostel.cert.pem"))});
        EXPECT_EQ(verified.status, 0) << verified.errors;
    }
    EXPECT_THAT(
        RunProgram({"openssl", "x509", "-in", File("a/ostel.cert.pem"), "-noout", "-text"}).output,
        testing::AllOf(HasSubstr("Version: 3"), HasSubstr("CA:FALSE"),
                       HasSubstr("TLS Web Server Authentication, TLS Web Client")));
    const auto key = std::filesystem::status(File("a/ostel.key.pem"));
    EXPECT_EQ(key.permissions() & ~std::filesystem::perms::owner_all, std::filesystem::perms::none);
}

TEST_F(MakeCerts, AsksForTheRootsKey) {
    ASSERT_EQ(Make("a").status, 0);
    std::filesystem::remove(File("root.key.pem"));
    const TFinished made = Make("b");
    EXPECT_EQ(made.status, 1);
    EXPECT_THAT(made.errors, HasSubstr("root.key.pem is not: remove it to begin anew\n"));
    EXPECT_FALSE(std::filesystem::exists(File("b")));
}

TEST_F(MakeCerts, LeavesTheOldPairAndSaysWhyThereIsNoNewOne) {
    ASSERT_EQ(Make("a").status, 0);
    const std::string both = "cat " + File("a/") + "*";
    const std::string before = RunProgram({"sh", "-c", both}).output;
    std::ofstream(File("root.key.pem")) << "garbage";
    const TFinished made = Make("a");
    EXPECT_EQ(made.status, 1);
    EXPECT_THAT(made.errors, HasSubstr("make-certs: openssl x509 failed\n"));
    EXPECT_GT(made.errors.size(), 50U) << "what openssl said";
    EXPECT_EQ(RunProgram({"sh", "-c", both}).output, before);
    EXPECT_EQ(RunProgram({"ls", File("")}).output, "a\nroot.cert.pem\nroot.key.pem\n");
}

TEST_F(MakeCerts, TellsHowItIsUsed) {
    const TFinished made = RunProgram({OSTEL_MAKE_CERTS, m_Dir.File("certs")});
    EXPECT_EQ(made.status, 64);
    EXPECT_THAT(made.errors, HasSubstr("scripts/make-certs DIRECTORY UNIT..."));
}

}  // namespace
