#include "TOstelSslSocket.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <future>
#include <memory>

#include "BinaryLayout.h"
#include "CertificateMaker.h"
#include "ChildProcess.h"
#include "RecordingLog.h"
#include "TlsPeer.h"

struct TSession {
    friend std::size_t OffsetOf(TSession);
};
template struct MemberOffset<TSession, &TOstelSslSocket::m_Ssl>;

static bool noSessionGetsItsDescriptor = false;

// Takes the library's place, to fail as it does without memory.
extern "C" __attribute__((visibility("default"))) int SSL_set_fd(SSL* ssl, int descriptor) {
    if (noSessionGetsItsDescriptor) {
        ERR_put_error(ERR_LIB_SSL, 0, ERR_R_MALLOC_FAILURE, __FILE__, __LINE__);
        return 0;
    }
    static auto* const next = reinterpret_cast<int (*)(SSL*, int)>(dlsym(RTLD_NEXT, "SSL_set_fd"));
    return next(ssl, descriptor);
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using TContext = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;
using TSslSocket = std::unique_ptr<TOstelSslSocket>;

const char* const CONSTRUCTOR = "TOstelSslSocket::TOstelSslSocket(int, SSL_CTX*, bool): ";
const char* const READ = "virtual bool TOstelSslSocket::Read(char*, size_t) const: ";
const char* const WRITE = "virtual bool TOstelSslSocket::Write(const void*, size_t) const: ";
const char* const READ_ALL = "virtual bool TOstelSslSocket::ReadAll(std::string&) const: ";

TContext NewContext(const std::string& directory) {
    TContext context(SSL_CTX_new(TLS_method()), &SSL_CTX_free);
    EXPECT_EQ(SSL_CTX_use_certificate_file(context.get(), (directory + "ostel.cert.pem").c_str(),
                                           SSL_FILETYPE_PEM),
              1);
    EXPECT_EQ(SSL_CTX_use_PrivateKey_file(context.get(), (directory + "ostel.key.pem").c_str(),
                                          SSL_FILETYPE_PEM),
              1);
    EXPECT_EQ(SSL_CTX_load_verify_locations(context.get(),
                                            (directory + "ostelRoot.cert.pem").c_str(), nullptr),
              1);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    return context;
}

class TOstelSslSocketTest : public testing::Test {
protected:
    TOstelSslSocketTest() {
        RecordingLog::Clear();
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, m_Ends.data()), 0);
    }

    // Both ends shake hands, the server's on a thread of its own.
    void Connect(const std::string& serverCertificates, SSL_CTX* clientContext = nullptr) {
        const TContext context = NewContext(serverCertificates);
        SSL_CTX* const mine = clientContext != nullptr ? clientContext : m_Context.get();
        auto server = std::async(std::launch::async, [&] {
            return std::make_unique<TOstelSslSocket>(m_Ends[1], context.get(), true);
        });
        m_Client = std::make_unique<TOstelSslSocket>(m_Ends[0], mine, false);
        m_Server = server.get();
    }

    void Connect() { Connect(m_Certificates.Unit("server")); }

    CertificateMaker m_Certificates;
    TContext m_Context = NewContext(m_Certificates.Unit("client"));
    std::array<int, 2> m_Ends{-1, -1};
    TSslSocket m_Client;
    TSslSocket m_Server;
};

TEST_F(TOstelSslSocketTest, CarriesBytesBothWays) {
    Connect();
    std::string text;
    EXPECT_TRUE(m_Client->Write("request"));
    EXPECT_TRUE(m_Server->Read(text, 7));
    EXPECT_EQ(text, "request");
    const std::vector<char> sent{'a', '\0', 'b'};
    EXPECT_TRUE(m_Server->Write(sent));
    std::vector<char> bytes;
    EXPECT_TRUE(m_Client->Read(bytes, 3));
    EXPECT_EQ(bytes, sent);
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_F(TOstelSslSocketTest, IsOneForWhomeverHoldsItAsAPlainSocket) {
    Connect();
    const TOstelRawSocket& client = *m_Client;
    const TOstelRawSocket& server = *m_Server;
    EXPECT_TRUE(client.Write(std::string(600, 'x')));
    std::string out;
    EXPECT_TRUE(server.ReadAll(out));
    EXPECT_EQ(out, std::string(600, 'x'));
    EXPECT_TRUE(server.Write("abc"));
    EXPECT_TRUE(client.Read(out, 3));
    EXPECT_EQ(out, "abc");
}

TEST_F(TOstelSslSocketTest, ReadCollectsTheExactLengthFromSeveralRecords) {
    Connect();
    EXPECT_TRUE(m_Server->Write("0123"));
    EXPECT_TRUE(m_Server->Write("456789"));
    std::string text;
    EXPECT_TRUE(m_Client->Read(text, 10));
    EXPECT_EQ(text, "0123456789");
    EXPECT_TRUE(m_Client->Read(nullptr, 0));
}

TEST_F(TOstelSslSocketTest, ReadTellsOfAnEndBeforeTheLength) {
    Connect();
    EXPECT_TRUE(m_Server->Write("0123"));
    m_Server.reset();
    std::string text = "abcdefgh";
    EXPECT_FALSE(m_Client->Read(text, 8));
    EXPECT_EQ(text, "0123efgh");
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre(READ + ("Failed to read from the socket. ret = " +
                                    std::to_string(SSL_ERROR_ZERO_RETURN))));
}

// The devices' logs are searched for this source and line, wherever the code stands by now.
TEST_F(TOstelSslSocketTest, AWriteLogsItsText) {
    Connect();
    RecordingLog::Clear();
    EXPECT_TRUE(m_Client->Write("{\"a\":1}"));
    EXPECT_THAT(
        RecordingLog::Texts(6),
        ElementsAre("[framework/TOstelSslSocket:102][Write]: virtual bool "
                    "TOstelSslSocket::Write(const void*, size_t) const, Sending {\"a\":1}."));
}

TEST_F(TOstelSslSocketTest, AWriteLogsTheTextAsAWholeWhateverItsLength) {
    Connect();
    RecordingLog::Clear();
    EXPECT_TRUE(m_Client->Write("hello world", 5));
    std::string out;
    EXPECT_TRUE(m_Server->ReadAll(out));
    EXPECT_EQ(out, "hello");
    EXPECT_THAT(RecordingLog::Texts(6), ElementsAre(HasSubstr(", Sending hello world.")));
}

TEST_F(TOstelSslSocketTest, AWriteOfBytesWithoutAZeroLogsNoMoreThanTheBytes) {
    Connect();
    RecordingLog::Clear();
    EXPECT_TRUE(m_Client->Write(std::vector<char>(40, 'z')));
    EXPECT_THAT(RecordingLog::Texts(6),
                ElementsAre(HasSubstr(", Sending " + std::string(40, 'z') + ".")));
    EXPECT_TRUE(m_Client->Write(nullptr, 0)) << "nothing to send, and nothing to log";
}

TEST_F(TOstelSslSocketTest, AWriteToAPeerThatIsGoneFailsAndNoMore) {
    Connect();
    shutdown(m_Ends[1], SHUT_RDWR);
    RecordingLog::Clear();
    EXPECT_FALSE(m_Client->Write("x"));
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre(HasSubstr(WRITE + std::string("Failed to write into the socket. "
                                                          "ret = "))));
    m_Client.reset();  // says goodbye to nobody
}

TEST_F(TOstelSslSocketTest, AShortWriteIsNotContinued) {
    SSL_CTX_set_mode(m_Context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE);
    Connect();
    fcntl(m_Ends[0], F_SETFL, O_NONBLOCK);
    RecordingLog::Clear();
    EXPECT_FALSE(m_Client->Write(std::string(16 << 20, 'x')));
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre(WRITE + std::string("Failed to write the entire buffer. ret = 0")));
}

TEST_F(TOstelSslSocketTest, ReadAllEndsWithTheFirstShortChunk) {
    Connect();
    const std::string message = std::string(512, 'a') + std::string(188, 'b');
    EXPECT_TRUE(m_Server->Write(message));
    std::string out = ">";
    EXPECT_TRUE(m_Client->ReadAll(out));
    EXPECT_EQ(out, ">" + message);
}

// With and without the rest taken in ahead, which is where a session would find it.
TEST_F(TOstelSslSocketTest, ReadAllEndsWithAShortRecordThoughMoreIsWaiting) {
    const std::string server = m_Certificates.Unit("server");
    for (const int readAhead : {0, 1}) {
        SSL_CTX_set_read_ahead(m_Context.get(), readAhead);
        Connect(server);
        EXPECT_TRUE(m_Server->Write("first"));
        EXPECT_TRUE(m_Server->Write("second"));
        std::string out;
        EXPECT_TRUE(m_Client->ReadAll(out));
        EXPECT_EQ(out, "first");
        EXPECT_TRUE(m_Client->ReadAll(out));
        EXPECT_EQ(out, "firstsecond");
        m_Server.reset();
        m_Client.reset();
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, m_Ends.data()), 0);
    }
    close(m_Ends[0]);
    close(m_Ends[1]);
}

// Peers pad their texts with zeros: the loss is counted on.
TEST_F(TOstelSslSocketTest, ReadAllLosesWhatStandsBehindAZeroInAChunk) {
    Connect();
    std::string message = std::string(512, 'a') + "tail";
    message[5] = '\0';
    EXPECT_TRUE(m_Server->Write(message));
    std::string out;
    EXPECT_TRUE(m_Client->ReadAll(out));
    EXPECT_EQ(out, "aaaaatail");
}

// Unlike the plain socket's, and callers tell the two apart by it.
TEST_F(TOstelSslSocketTest, ReadAllFailsAtTheEndAndKeepsWhatCameBefore) {
    Connect();
    EXPECT_TRUE(m_Server->Write(std::string(1024, 'a')));
    m_Server.reset();
    std::string out;
    EXPECT_FALSE(m_Client->ReadAll(out));
    EXPECT_EQ(out, std::string(1024, 'a'));
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre(READ_ALL + ("Failed to read from the socket. ret = " +
                                        std::to_string(SSL_ERROR_ZERO_RETURN))));
}

TEST_F(TOstelSslSocketTest, APeerThatDoesNotSpeakTlsIsALogLineAndFailuresLater) {
    const std::string words = "220 this is not TLS\r\n";
    ASSERT_GT(send(m_Ends[1], words.data(), words.size(), 0), 0);
    shutdown(m_Ends[1], SHUT_WR);
    m_Client = std::make_unique<TOstelSslSocket>(m_Ends[0], m_Context.get(), false);
    EXPECT_THAT(
        RecordingLog::Texts(2),
        ElementsAre(CONSTRUCTOR +
                    std::string("Client SSL failed to connect to the socket. Error code 1. Err : "
                                "0.")));
    std::string text;
    EXPECT_FALSE(m_Client->Write("x"));
    EXPECT_FALSE(m_Client->Read(text, 1));
    EXPECT_FALSE(m_Client->ReadAll(text));
    close(m_Ends[1]);
}

TEST_F(TOstelSslSocketTest, AServerNamesItsRoleWhenItsPeerDoesNotSpeakTls) {
    const std::string words = "GET / HTTP/1.0\r\n\r\n";
    ASSERT_GT(send(m_Ends[0], words.data(), words.size(), 0), 0);
    m_Server = std::make_unique<TOstelSslSocket>(m_Ends[1], m_Context.get(), true);
    EXPECT_THAT(
        RecordingLog::Texts(2),
        ElementsAre(CONSTRUCTOR +
                    std::string("Server SSL failed to connect to the socket. Error code 1. Err : "
                                "0.")));
    close(m_Ends[0]);
}

TEST_F(TOstelSslSocketTest, AHandshakeSaysWhyThePeersCertificateIsRefused) {
    const std::vector<std::pair<std::string, long>> cases{
        {m_Certificates.Expired("expired"), X509_V_ERR_CERT_HAS_EXPIRED},
        {m_Certificates.SelfSigned("self-signed"), X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT},
        {m_Certificates.Foreign("foreign"), X509_V_ERR_CERT_SIGNATURE_FAILURE}};
    for (const auto& [certificates, error] : cases) {
        RecordingLog::Clear();
        Connect(certificates);
        EXPECT_EQ(RecordingLog::Count(
                      2, CONSTRUCTOR + ("Client SSL failed to connect to the socket. Error "
                                        "code 1. Err : " +
                                        std::to_string(error) + ".")),
                  1)
            << certificates;
        m_Server.reset();
        m_Client.reset();
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, m_Ends.data()), 0);
    }
    close(m_Ends[0]);
    close(m_Ends[1]);
}

TEST_F(TOstelSslSocketTest, WithoutAContextThereIsNoSessionAndEverythingFails) {
    testing::internal::CaptureStdout();
    m_Client = std::make_unique<TOstelSslSocket>(m_Ends[0], nullptr, false);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("error:"));
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre(CONSTRUCTOR + std::string("Client SSL failed to init. Error code 1")));
    std::string text;
    EXPECT_FALSE(m_Client->Write("x"));
    EXPECT_FALSE(m_Client->Read(text, 1));
    EXPECT_FALSE(m_Client->ReadAll(text));
    m_Client.reset();
    EXPECT_EQ(fcntl(m_Ends[0], F_GETFD), -1);
    close(m_Ends[1]);
}

// The handshake is tried all the same: its line is the one that the devices' logs are searched for.
TEST_F(TOstelSslSocketTest, ASessionWithoutItsDescriptorTriesTheHandshakeAllTheSame) {
    noSessionGetsItsDescriptor = true;
    testing::internal::CaptureStdout();
    m_Client = std::make_unique<TOstelSslSocket>(m_Ends[0], m_Context.get(), false);
    m_Server = std::make_unique<TOstelSslSocket>(m_Ends[1], m_Context.get(), true);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("malloc failure"));
    // The queue has been printed: there is no error left in it for the code to tell of.
    const std::string init = " SSL failed to init. Error code 5";
    const std::string handshake = " SSL failed to connect to the socket. Error code 1. Err : 0.";
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre(CONSTRUCTOR + ("Client" + init), CONSTRUCTOR + ("Client" + handshake),
                            CONSTRUCTOR + ("Server" + init), CONSTRUCTOR + ("Server" + handshake)));
    std::string text;
    EXPECT_FALSE(m_Client->Write("x"));
    EXPECT_FALSE(m_Server->Read(text, 1));
    EXPECT_FALSE(m_Server->ReadAll(text));
    noSessionGetsItsDescriptor = false;
}

TEST_F(TOstelSslSocketTest, StaysUsableAfterAFailure) {
    Connect();
    ASSERT_EQ(fcntl(m_Ends[0], F_SETFL, O_NONBLOCK), 0);
    std::string text;
    EXPECT_FALSE(m_Client->Read(text, 4));
    EXPECT_FALSE(m_Client->ReadAll(text));
    const std::string nothingYet =
        "Failed to read from the socket. ret = " + std::to_string(SSL_ERROR_WANT_READ);
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(READ + nothingYet, READ_ALL + nothingYet));
    EXPECT_TRUE(m_Server->Write("here"));
    EXPECT_TRUE(m_Client->Read(text, 4));
    EXPECT_EQ(text, "here");
    EXPECT_TRUE(m_Client->Write("there"));
    EXPECT_TRUE(m_Server->Read(text, 5));
    EXPECT_EQ(text, "there");
}

TEST_F(TOstelSslSocketTest, AnOldErrorOfTheThreadIsNotTakenForThisOnes) {
    Connect();
    m_Server.reset();
    const TContext other(SSL_CTX_new(TLS_method()), &SSL_CTX_free);
    EXPECT_EQ(SSL_CTX_use_certificate_file(other.get(), "/nowhere", SSL_FILETYPE_PEM), 0);
    std::string text;
    EXPECT_FALSE(m_Client->Read(text, 1));
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre(READ + ("Failed to read from the socket. ret = " +
                                    std::to_string(SSL_ERROR_ZERO_RETURN))));
}

TEST_F(TOstelSslSocketTest, SaysGoodbyeAndClosesItsDescriptor) {
    Connect();
    std::string out;
    m_Client.reset();
    EXPECT_EQ(fcntl(m_Ends[0], F_GETFD), -1);
    EXPECT_FALSE(m_Server->ReadAll(out));
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(HasSubstr("ret = 6")));
}

// A socket bound to a port of an address that nobody else uses, so that it stays free when closed.
int Bound(sockaddr_in& address) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(TlsPeer::FreeHost().c_str());
    socklen_t length = sizeof(address);
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    return listener;
}

TEST_F(TOstelSslSocketTest, TalksToTheServerOfTheOpensslProgram) {
    const std::string server = m_Certificates.Unit("server");
    sockaddr_in address{};
    close(Bound(address));  // a free port
    const ChildProcess peer({"openssl", "s_server", "-rev", "-accept",
                             TlsPeer::FreeHost() + ":" + std::to_string(ntohs(address.sin_port)),
                             "-cert", server + "ostel.cert.pem", "-key", server + "ostel.key.pem",
                             "-CAfile", server + "ostelRoot.cert.pem", "-Verify", "1",
                             "-verify_return_error"});
    ASSERT_TRUE(peer.WaitForOutput("ACCEPT")) << peer.Errors();
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    const TOstelSslSocket client(connection, m_Context.get(), false);
    EXPECT_TRUE(client.Write("there and back\n"));
    std::string text;
    EXPECT_TRUE(client.Read(text, 15));
    EXPECT_EQ(text, "kcab dna ereht\n");
    close(m_Ends[0]);
    close(m_Ends[1]);
}

TEST_F(TOstelSslSocketTest, TalksToTheClientOfTheOpensslProgram) {
    const std::string unit = m_Certificates.Unit("unit");
    sockaddr_in address{};
    const int listener = Bound(address);
    ASSERT_EQ(listen(listener, 1), 0);
    const ChildProcess peer({"openssl", "s_client", "-quiet", "-connect",
                             TlsPeer::FreeHost() + ":" + std::to_string(ntohs(address.sin_port)),
                             "-cert", unit + "ostel.cert.pem", "-key", unit + "ostel.key.pem",
                             "-CAfile", unit + "ostelRoot.cert.pem", "-verify_return_error"},
                            "a question");
    const TOstelSslSocket server(accept(listener, nullptr, nullptr), m_Context.get(), true);
    close(listener);
    std::string text;
    EXPECT_TRUE(server.Read(text, 10));
    EXPECT_EQ(text, "a question");
    EXPECT_TRUE(server.Write("an answer"));
    EXPECT_TRUE(peer.WaitForOutput("an answer")) << peer.Errors();
    close(m_Ends[0]);
    close(m_Ends[1]);
}

TEST(TOstelSslSocketLayout, KeepsItsSlotsAndItsMembers) {
    using T = TOstelSslSocket;
    EXPECT_EQ(BinaryLayout::SlotOf<bool (T::*)(char*, std::size_t) const>(&T::Read), 2U);
    EXPECT_EQ(BinaryLayout::SlotOf<bool (T::*)(const void*, std::size_t) const>(&T::Write), 3U);
    EXPECT_EQ(BinaryLayout::SlotOf(&T::ReadAll), 4U);
    EXPECT_EQ(OffsetOf(TSession()), 2 * sizeof(void*));
    EXPECT_EQ(sizeof(T), 3 * sizeof(void*));
}

}  // namespace
