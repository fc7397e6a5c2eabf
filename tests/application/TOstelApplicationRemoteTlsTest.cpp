// Certificates, and what becomes of requests with and without them.
#include <dlfcn.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <vector>

#include "ChildProcess.h"
#include "OstelApi.h"
#include "PrivateMember.h"
#include "RemoteTest.h"
#include "StandardInput.h"

struct TCertificateDirectory {
    friend std::string TOstelApplication::*MemberOf(TCertificateDirectory);
};
template struct PrivateMember<TTlsContext, &TOstelApplication::m_TlsContext>;
template struct PrivateMember<TCertificateDirectory, &TOstelApplication::m_CertificateDirectory>;

namespace {

std::atomic<bool> mayMakeContexts{true};
std::atomic<bool> tellsOfFreedContexts{false};
std::mutex initialisationsMutex;
std::vector<std::uint64_t> initialisations;

}  // namespace

// Stands before the TLS library's, for the library under test.
extern "C" OSTEL_API SSL_CTX* SSL_CTX_new(const SSL_METHOD* method) {
    static auto* const next =
        reinterpret_cast<decltype(&SSL_CTX_new)>(dlsym(RTLD_NEXT, "SSL_CTX_new"));
    return mayMakeContexts ? next(method) : nullptr;
}

extern "C" OSTEL_API void SSL_CTX_free(SSL_CTX* context) {
    static auto* const next =
        reinterpret_cast<decltype(&SSL_CTX_free)>(dlsym(RTLD_NEXT, "SSL_CTX_free"));
    if (tellsOfFreedContexts && context != nullptr) {
        std::fputs("A context is freed.\n", stderr);
    }
    next(context);
}

extern "C" OSTEL_API int OPENSSL_init_ssl(std::uint64_t options,
                                          const OPENSSL_INIT_SETTINGS* settings) {
    static auto* const next =
        reinterpret_cast<decltype(&OPENSSL_init_ssl)>(dlsym(RTLD_NEXT, "OPENSSL_init_ssl"));
    const std::lock_guard<std::mutex> lock(initialisationsMutex);
    initialisations.push_back(options);
    return next(options, settings);
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class TOstelApplicationRemoteTls : public RemoteTlsTest {
protected:
    const std::string m_PeersUnit = m_Certificates.Unit("that unit");
};

TEST(TOstelApplicationRemoteDirectory, IsTheDevicesOwnUntilAnotherIsSet) {
    TOstelApplication& app = *TOstelApplication::GetInstance();
    EXPECT_EQ(app.*MemberOf(TCertificateDirectory()), "/usr/certs/");
    app.SetCertPath("/elsewhere/");
    EXPECT_EQ(app.*MemberOf(TCertificateDirectory()), "/elsewhere/");
}

TEST_F(TOstelApplicationRemoteTls, TheFirstRequestLoadsTheCertificatesOfTheDirectory) {
    const TlsPeer peer({m_PeersUnit}, TlsPeer::Framed(OK_REPLY));
    m_App.SetCertPath(m_Unit);
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_THAT(peer.Requests(), ElementsAre(R"({"REQUEST_TYPE":"COMMIT"})"));
    EXPECT_THAT(peer.Clients(), ElementsAre("this unit"));
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_F(TOstelApplicationRemoteTls, DemandsTls12AndAPeersCertificate) {
    ASSERT_TRUE(Enable(m_Unit));
    EXPECT_EQ(SSL_CTX_get_min_proto_version(Context()), TLS1_2_VERSION);
    EXPECT_EQ(SSL_CTX_get_verify_mode(Context()), 3);
    EXPECT_EQ(SSL_CTX_get_verify_callback(Context()), nullptr);
    EXPECT_EQ(SSL_CTX_get_verify_depth(Context()), 3);
    EXPECT_NE(SSL_CTX_get_options(Context()) & SSL_OP_NO_SSLv3, 0U);
}

TEST_F(TOstelApplicationRemoteTls, MakesTheTlsLibraryReadyWithItsErrorTexts) {
    initialisations.clear();
    ASSERT_TRUE(Enable(m_Unit));
    ASSERT_GE(initialisations.size(), 2U);
    EXPECT_EQ(initialisations[0], OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS);
    EXPECT_EQ(initialisations[1], 0U);
}

TEST_F(TOstelApplicationRemoteTls, WithoutAContextARequestIsInPlainText) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    m_App.SetCertPath(m_Unit);
    mayMakeContexts = false;
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre("Unable to create SSL context", "Failed to init SSL"));
    EXPECT_EQ(Context(), nullptr);
    mayMakeContexts = true;
}

// No leak checker sees it: until the very end the application object points to it.
TEST_F(TOstelApplicationRemoteTls, TheContextIsFreedWhenTheProcessEnds) {
    ASSERT_TRUE(Enable(m_Unit));
    const auto end = [] {
        tellsOfFreedContexts = true;
        std::exit(0);
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(0), "^A context is freed.\n$");
}

TEST_F(TOstelApplicationRemoteTls, TalksTls12AndAbove) {
    ASSERT_TRUE(Enable(m_Unit));
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        const TlsPeer peer({m_PeersUnit, true, version}, TlsPeer::Framed(OK_REPLY));
        EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS) << version;
    }
}

TEST_F(TOstelApplicationRemoteTls, SendsNothingToAPeerThatOffersOnlyTls11) {
    ASSERT_TRUE(Enable(m_Unit));
    const TlsPeer peer({m_PeersUnit, true, TLS1_1_VERSION}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE);
    EXPECT_THAT(peer.Requests(), IsEmpty());
}

TEST_F(TOstelApplicationRemoteTls, SendsNothingToAPeerThatIsNotTrusted) {
    ASSERT_TRUE(Enable(m_Unit));
    for (const std::string& certificates :
         {m_Certificates.Expired("expired"), m_Certificates.SelfSigned("self-signed"),
          m_Certificates.Foreign("foreign")}) {
        const TlsPeer peer({certificates}, TlsPeer::Framed(OK_REPLY));
        RecordingLog::Clear();
        EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE) << certificates;
        EXPECT_THAT(peer.Requests(), IsEmpty()) << certificates;
        EXPECT_THAT(Errors(),
                    ElementsAre("Could not send the request to " + peer.Host() + ":42042.",
                                "RemotOstel: failed to read the JSON length in response or the "
                                "value is wrong. JSON size is 0. MAX = 4096"));
    }
}

TEST_F(TOstelApplicationRemoteTls, SendsNothingToAPeerWithoutACertificate) {
    ASSERT_TRUE(Enable(m_Unit));
    const TlsPeer peer({m_PeersUnit, false}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE);
    EXPECT_THAT(peer.Requests(), IsEmpty());
}

TEST_F(TOstelApplicationRemoteTls, IsRefusedByAPeerThatDoesNotTrustThisUnit) {
    const TlsPeer peer({m_PeersUnit}, TlsPeer::Framed(OK_REPLY));
    for (const std::string& certificates :
         {m_Certificates.Expired("expired"), m_Certificates.SelfSigned("self-signed"),
          m_Certificates.Foreign("foreign")}) {
        ASSERT_TRUE(Enable(certificates)) << "whether others trust it shows when they see it";
        EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE) << certificates;
    }
    EXPECT_THAT(peer.Clients(), IsEmpty());
}

TEST_F(TOstelApplicationRemoteTls, SpeaksTlsToAPeerThatDoesNot) {
    ASSERT_TRUE(Enable(m_Unit));
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE);
    ASSERT_THAT(peer.Requests(), SizeIs(1));
    EXPECT_EQ(peer.Requests()[0].find("COMMIT"), std::string::npos) << "nothing in plain text";
}

TEST_F(TOstelApplicationRemoteTls, WaitsForAPeerThatSaysNothingToItsHandshake) {
    ASSERT_TRUE(Enable(m_Unit));
    ExpectToWaitForASilentPeer();
}

// Units without certificates are set up that way: the plain text is wanted.
TEST_F(TOstelApplicationRemoteTls, WithoutCertificatesEachRequestSaysSoAndGoesOutInPlainText) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre("Unable to load Cert", "Failed to init SSL",
                                                    "Unable to load Cert", "Failed to init SSL"));
    EXPECT_THAT(peer.Requests(),
                ElementsAre(R"({"REQUEST_TYPE":"COMMIT"})", R"({"REQUEST_TYPE":"COMMIT"})"));
}

TEST_F(TOstelApplicationRemoteTls, InPlainTextToAPeerThatSpeaksTlsARequestFails) {
    const TlsPeer peer({m_PeersUnit}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE);
    EXPECT_THAT(peer.Requests(), IsEmpty());
}

TEST_F(TOstelApplicationRemoteTls, CertificatesThatComeLaterAreTakenUp) {
    EXPECT_EQ(m_App.CommitRemote(TlsPeer::FreeHost()), RC_FAILURE);
    const TlsPeer peer({m_PeersUnit}, TlsPeer::Framed(OK_REPLY));
    m_App.SetCertPath(m_Unit);
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
}

TEST_F(TOstelApplicationRemoteTls, AnotherDirectoryDoesNotMatterWhileCertificatesAreInUse) {
    const TlsPeer peer({m_PeersUnit}, TlsPeer::Framed(OK_REPLY));
    ASSERT_TRUE(Enable(m_Unit));
    const SSL_CTX* const context = Context();
    m_App.SetCertPath("/elsewhere/");
    EXPECT_EQ(Context(), context);
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());

    EXPECT_FALSE(Enable("/nonexistent/"));
    RecordingLog::Clear();
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE);
    EXPECT_THAT(Errors(), testing::Contains("Failed to init SSL"));
}

TEST_F(TOstelApplicationRemoteTls, TheDirectoryIsJoinedWithoutASeparator) {
    m_App.SetCertPath(m_Unit.substr(0, m_Unit.size() - 1));
    EXPECT_FALSE(Perform(TlsPeer::FreeHost()));
    EXPECT_EQ(RecordingLog::Count(2, "Unable to load Cert"), 1);
}

TEST_F(TOstelApplicationRemoteTls, AnIdentityThatCannotBeLoadedLeavesNoContext) {
    const std::string cert = "ostel.cert.pem";
    const std::string key = "ostel.key.pem";
    const auto without = [&](const std::string& name, const std::string& file) {
        std::string directory = m_Certificates.Unit(name);
        std::filesystem::remove(directory + file);
        return directory;
    };
    const auto garbled = [&](const std::string& name, const std::string& file) {
        std::string directory = without(name, file);
        std::ofstream(directory + file) << "-----BEGIN CERTIFICATE-----\nAAAA\n";
        return directory;
    };
    const auto unreadable = [&](const std::string& name, const std::string& file) {
        std::string directory = without(name, file);
        std::filesystem::create_directory(directory + file);
        return directory;
    };
    const char* const noCert = "Unable to load Cert";
    const char* const noKey = "Unable to load Key";
    const std::vector<std::pair<std::string, std::string>> cases{
        {without("a", cert), noCert},
        {garbled("b", cert), noCert},
        {unreadable("c", cert), noCert},
        {without("d", key), noKey},
        {garbled("e", key), noKey},
        {unreadable("f", key), noKey},
        {m_Certificates.WrongKey("g"), noKey},
        {m_Certificates.WrongKindOfKey("h"),
         "Private key does not match the certificate public key"}};
    for (const auto& [directory, error] : cases) {
        ASSERT_TRUE(Enable(m_Unit));
        RecordingLog::Clear();
        EXPECT_FALSE(Enable(directory)) << directory;
        EXPECT_EQ(Context(), nullptr) << directory;
        EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(error)) << directory;
    }
}

TEST_F(TOstelApplicationRemoteTls, NobodyIsAskedForAPassPhrase) {
    const std::string directory = m_Certificates.KeyWithPassPhrase("locked", "secret");
    TypeOnStandardInput("secret\n");
    EXPECT_FALSE(Enable(directory));
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre("Unable to load Key"));
}

class TOstelApplicationRemoteWithoutRoot : public TOstelApplicationRemoteTls {
protected:
    TOstelApplicationRemoteWithoutRoot() {
        std::filesystem::rename(m_Unit + "ostelRoot.cert.pem", m_Unit + "root.away");
        m_App.SetCertPath(m_Unit);
    }
};

// Units whose root has not been delivered yet rely on it.
TEST_F(TOstelApplicationRemoteWithoutRoot, KeepsAContextThatTrustsAnybody) {
    EXPECT_FALSE(Enable(m_Unit));
    EXPECT_NE(Context(), nullptr);
    EXPECT_EQ(SSL_CTX_get_verify_mode(Context()), SSL_VERIFY_NONE);
    EXPECT_EQ(SSL_CTX_get_min_proto_version(Context()), TLS1_2_VERSION);
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre("Client: SSL Failed to load certs. Error 0"));
}

TEST_F(TOstelApplicationRemoteWithoutRoot, ARootThatCannotBeReadIsNone) {
    const std::string root = m_Unit + "ostelRoot.cert.pem";
    std::ofstream(root) << "-----BEGIN CERTIFICATE-----\nAAAA\n";
    EXPECT_FALSE(Enable(m_Unit));
    EXPECT_NE(Context(), nullptr);
    std::filesystem::remove(root);
    std::filesystem::create_directory(root);
    EXPECT_FALSE(Enable(m_Unit));
    EXPECT_NE(Context(), nullptr);
    const char* const line = "Client: SSL Failed to load certs. Error 0";
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(line, line));
}

TEST_F(TOstelApplicationRemoteWithoutRoot, RequestsAreEncryptedAndGoToAnybody) {
    const TlsPeer peer({m_Certificates.SelfSigned("anybody")}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_THAT(peer.Clients(), ElementsAre("this unit", "this unit"));
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre("Client: SSL Failed to load certs. Error 0", "Failed to init SSL"))
        << "said once: the context is there from then on";
}

TEST_F(TOstelApplicationRemoteWithoutRoot, ARootThatComesLaterIsNotTakenUpByItself) {
    const TlsPeer peer({m_Certificates.SelfSigned("anybody")}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    std::filesystem::rename(m_Unit + "root.away", m_Unit + "ostelRoot.cert.pem");
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_TRUE(Enable(m_Unit));
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE);
}

TEST_F(TOstelApplicationRemoteTls, ThreadsShareTheCertificatesAndNothingElse) {
    ASSERT_TRUE(Enable(m_Unit));
    const TlsPeer peer({m_PeersUnit}, [](TlsPeer::TConnection& connection) {
        connection.Send(TlsPeer::Framed(OK_REPLY, connection.Receive()));
    });
    const auto ask = [&](const std::string& request) {
        std::vector<char> echo;
        std::string reply;
        return m_App.PerformRemoteRequest(request, peer.Host(), reply, &echo) &&
               std::string(echo.begin(), echo.end()) == request;
    };
    std::vector<std::future<bool>> results;
    for (const char* request : {"one", "two", "three", "four"}) {
        results.push_back(std::async(std::launch::async, [&ask, request] {
            bool all = true;
            for (int i = 0; i < 10; ++i) {
                all = ask(request + std::to_string(i)) && all;
            }
            return all;
        }));
    }
    for (auto& result : results) {
        EXPECT_TRUE(result.get());
    }
}

// Each request looks for certificates anew.
TEST_F(TOstelApplicationRemoteTls, ThreadsNeedNoCertificates) {
    const std::string host = TlsPeer::FreeHost();
    std::vector<std::future<void>> results(4);
    for (auto& result : results) {
        result = std::async(std::launch::async, [&] {
            for (int i = 0; i < 200; ++i) {
                EXPECT_EQ(m_App.CommitRemote(host), RC_FAILURE);
            }
        });
    }
    for (auto& result : results) {
        result.get();
    }
    EXPECT_EQ(RecordingLog::Count(2, "Failed to init SSL"), 800);
}

TEST_F(TOstelApplicationRemoteTls, TalksToTheServerOfTheOpensslProgram) {
    const TempDir dir;
    const std::string input = dir.File("input");
    ASSERT_EQ(mkfifo(input.c_str(), 0600), 0);
    const std::string host = TlsPeer::FreeHost();
    const ChildProcess peer({"sh", "-c",
                             "exec openssl s_server -accept " + host + ":42042 -cert '" +
                                 m_PeersUnit + "ostel.cert.pem' -key '" + m_PeersUnit +
                                 "ostel.key.pem' -CAfile '" + m_PeersUnit +
                                 "ostelRoot.cert.pem' -Verify 1 -verify_return_error <" + input});
    std::ofstream answer(input, std::ios::binary);
    ASSERT_TRUE(peer.WaitForOutput("ACCEPT")) << peer.Errors();
    ASSERT_TRUE(Enable(m_Unit));
    std::vector<char> file;
    auto request =
        std::async(std::launch::async, [&] { return m_App.GetFileRemote(host, "log", file); });
    EXPECT_TRUE(peer.WaitForOutput(R"({"REQUEST_TYPE":"GET_FILE","FILE_NAME":"log"})"))
        << peer.Errors();
    answer << TlsPeer::Framed(OK_REPLY, "the file") << std::flush;
    EXPECT_EQ(request.get(), RC_SUCCESS);
    EXPECT_EQ(std::string(file.begin(), file.end()), "the file");
    EXPECT_THAT(peer.Output(), HasSubstr("CN = this unit"));
}

}  // namespace
