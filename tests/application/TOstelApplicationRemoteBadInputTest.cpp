// Peers that answer badly or not at all, and hosts that are none.
#include <malloc.h>

#include <mutex>

#include "RemoteTest.h"
#include "Resources.h"
#include "WaitUntil.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char* const NO_BINARY_LENGTH = "RemotOstel: failed to read the Blob length in response.";
const char* const NO_JSON = "RemotOstel: Failed to read Json from the socket.";
const char* const NO_BINARY = "RemotOstel: Failed to read Blob.";

std::string WrongJsonLength(const std::string& length) {
    return "RemotOstel: failed to read the JSON length in response or the value is wrong. JSON "
           "size is " +
           length + ". MAX = 4096";
}

// Every case over plain TCP and over TLS.
class TOstelApplicationRemoteBadPeer : public RemoteTlsTest,
                                       public testing::WithParamInterface<bool> {
protected:
    TOstelApplicationRemoteBadPeer() {
        if (GetParam()) {
            m_Peer.certificates = m_Certificates.Unit("that unit");
            EXPECT_TRUE(Enable(m_Unit));
        }
    }

    TlsPeer::TSettings m_Peer;
};

INSTANTIATE_TEST_SUITE_P(Over, TOstelApplicationRemoteBadPeer, testing::Bool(),
                         [](const auto& over) { return over.param ? "Tls" : "PlainTcp"; });

TEST_P(TOstelApplicationRemoteBadPeer, EndsTooEarly) {
    const std::string answer = TlsPeer::Framed(OK_REPLY);
    const std::vector<std::pair<std::size_t, std::string>> cases{{0, WrongJsonLength("0")},
                                                                 {3, WrongJsonLength("15")},
                                                                 {4, NO_BINARY_LENGTH},
                                                                 {7, NO_BINARY_LENGTH},
                                                                 {8, NO_JSON},
                                                                 {15, NO_JSON}};
    for (const auto& [length, error] : cases) {
        const TlsPeer peer(m_Peer, answer.substr(0, length));
        RecordingLog::Clear();
        EXPECT_FALSE(Perform(peer.Host()));
        EXPECT_THAT(ErrorsButPlainText(), ElementsAre(error)) << length;
        EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE);
    }
}

TEST_P(TOstelApplicationRemoteBadPeer, EndsWithoutHearingTheRequest) {
    const TlsPeer peer(m_Peer, [](TlsPeer::TConnection&) {});
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE);
    EXPECT_EQ(ErrorsButPlainText().back(), WrongJsonLength("0"));
}

TEST_P(TOstelApplicationRemoteBadPeer, AnnouncesADocumentOfAnyLength) {
    const std::string longest = OK_REPLY + std::string(4096 - 15, ' ');
    {
        const TlsPeer peer(m_Peer, TlsPeer::Framed(longest));
        EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    }
    const std::vector<std::pair<std::uint32_t, std::string>> cases{
        {0, "0"}, {4097, "4097"}, {0x80000000, "2147483648"}, {0xFFFFFFFF, "4294967295"}};
    for (const auto& [length, text] : cases) {
        const TlsPeer peer(m_Peer, TlsPeer::Length(length) + TlsPeer::Length(0) + longest + "  ");
        RecordingLog::Clear();
        EXPECT_FALSE(Perform(peer.Host()));
        EXPECT_THAT(ErrorsButPlainText(), ElementsAre(WrongJsonLength(text)));
    }
}

TEST_P(TOstelApplicationRemoteBadPeer, AnnouncesABinaryPartOfAnyLength) {
    const auto head = [](std::uint32_t length) {
        return TlsPeer::Length(15) + TlsPeer::Length(length) + OK_REPLY;
    };
    std::vector<char> binary;
    {
        const TlsPeer peer(m_Peer, head(1048575) + std::string(1048575, 'x'));
        EXPECT_TRUE(m_App.PerformRemoteRequest("{}", peer.Host(), m_Reply, &binary));
        EXPECT_EQ(binary, std::vector<char>(1048575, 'x'));
    }
    for (const std::uint32_t length : {0x100000U, 0x80000000U, 0xFFFFFFFFU}) {
        const TlsPeer peer(m_Peer, head(length) + "x");
        RecordingLog::Clear();
        binary.assign(3, 'x');
        m_Reply.clear();
        EXPECT_FALSE(m_App.PerformRemoteRequest("{}", peer.Host(), m_Reply, &binary));
        EXPECT_EQ(m_Reply, OK_REPLY) << "the document comes first";
        EXPECT_THAT(binary, IsEmpty());
        EXPECT_THAT(ErrorsButPlainText(), ElementsAre("RemotOstel: The Blob length is too big " +
                                                      std::to_string(length) + "."));
    }
}

TEST_P(TOstelApplicationRemoteBadPeer, EndsWithinTheBinaryPart) {
    const std::string answer = TlsPeer::Framed(OK_REPLY, "0123456789");
    const TlsPeer peer(m_Peer, answer.substr(0, answer.size() - 1));
    std::vector<char> binary(3, 'x');
    EXPECT_EQ(m_App.GetFileRemote(peer.Host(), "f", binary), RC_FAILURE);
    EXPECT_THAT(binary, IsEmpty());
    EXPECT_THAT(ErrorsButPlainText(), ElementsAre(NO_BINARY));
}

TEST_P(TOstelApplicationRemoteBadPeer, AnswersWithAnythingButOk) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {R"({"STATUS":"ok"})", "ok"},
        {R"({"STATUS":"OK "})", "OK "},
        {R"({"STATUS":"FAILED: no such parameter %s%n"})", "FAILED: no such parameter %s%n"},
        {R"({"STATUS":""})", ""},
        {R"({"status":"OK"})", ""},
        {R"({"STATUS":true})", ""},
        {R"({"STATUS":0})", ""},
        {R"({"STATUS":null})", ""},
        {R"({"STATUS":["OK"]})", ""},
        {R"({"STATUS":{"STATUS":"OK"}})", ""},
        {"{}", ""},
        {"[]", ""},
        {R"(["STATUS","OK"])", ""},
        {R"("OK")", ""},
        {"OK", ""},
        {R"({"STATUS":"OK")", ""},
        {std::string("\0\xff\xfe garbage", 11), ""},
        {std::string(4096, '['), ""}};
    for (const auto& [reply, status] : cases) {
        const TlsPeer peer(m_Peer, TlsPeer::Framed(reply));
        RecordingLog::Clear();
        EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_FAILURE) << reply;
        TParams params{{"kept", "kept"}};
        EXPECT_EQ(m_App.GetParamRemote(peer.Host(), "A", params), RC_FAILURE) << reply;
        EXPECT_THAT(params, ElementsAre(IsParam("kept", "kept")));
        EXPECT_EQ(m_App.SetParamRemote(peer.Host(), "A", "1", true), RC_FAILURE) << reply;
        EXPECT_EQ(m_App.SendEventRemote(peer.Host(), "A", "1"), RC_FAILURE) << reply;
        const std::string error = "Remote Ostel has failed with '" + status + "'";
        EXPECT_THAT(ErrorsButPlainText(), ElementsAre(error, error, error, error)) << reply;
    }
}

TEST_P(TOstelApplicationRemoteBadPeer, AnswersWithParametersThatAreNone) {
    const TlsPeer peer(m_Peer, TlsPeer::Framed(R"({"STATUS":"OK","PARAMS":[1,{},{"NAME":2}]})"));
    TParams params;
    EXPECT_EQ(m_App.GetParamRemote(peer.Host(), "A", params), RC_SUCCESS);
    EXPECT_THAT(params, ElementsAre(IsParam("", ""), IsParam("", ""), IsParam("", "")));
}

class TOstelApplicationRemoteBadInput : public RemoteTest {};

TEST_F(TOstelApplicationRemoteBadInput, AFileThatIsRefusedIsLoggedWithTheWholeReply) {
    const std::string reply = R"({"STATUS":"NOT_FOUND","X":1})";
    const TlsPeer peer({}, TlsPeer::Framed(reply, "why"));
    std::vector<char> data(99, 'x');
    EXPECT_EQ(m_App.GetFileRemote(peer.Host(), "f", data), RC_FAILURE);
    EXPECT_THAT(data, ElementsAre('w', 'h', 'y')) << "the caller has what came all the same";
    EXPECT_THAT(ErrorsButPlainText(),
                ElementsAre("Remote Ostel has failed with 'NOT_FOUND'. \n\n " + reply + "\n"));
}

TEST_F(TOstelApplicationRemoteBadInput, AFileWhoseReplyIsNoDocumentIsLoggedAsSuch) {
    const TlsPeer peer({}, TlsPeer::Framed("{garbage", "file"));
    std::vector<char> data;
    EXPECT_EQ(m_App.GetFileRemote(peer.Host(), "f", data), RC_FAILURE);
    EXPECT_THAT(ErrorsButPlainText(), ElementsAre("Failed to parse response: {garbage"));
}

TEST_F(TOstelApplicationRemoteBadInput, AHostThatIsNoAddressIsRefusedBeforeAnythingElse) {
    const std::vector<std::string> hosts{"",           "localhost",   "example.org",
                                         "127.1",      "127.0.0.1 ",  " 127.0.0.1",
                                         "127.0.0",    "127.0.0.1.1", "127.0.0.256",
                                         "127.0.0.-1", "0x7f.0.0.1",  "127.0.0.1:42042",
                                         "[::1]",      "::1%lo",      ":::",
                                         "%s%n",       "\n",          "127.0.0.1/",
                                         "\xff",       "2130706433",  std::string(1 << 20, '1')};
    for (const std::string& host : hosts) {
        RecordingLog::Clear();
        EXPECT_FALSE(Perform(host)) << host.substr(0, 20);
        EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(host + " is not a valid IP"));
        EXPECT_EQ(m_App.CommitRemote(host), RC_FAILURE);
    }
    EXPECT_THAT(SocketCalls::Connects(), IsEmpty());
    EXPECT_THAT(RecordingLog::Texts(6), IsEmpty());
}

TEST_F(TOstelApplicationRemoteBadInput, AHostWithAZeroInsideIsNoAddress) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    SocketCalls::Clear();
    for (const std::string& tail : {std::string(1, '\0'), std::string("\0.example.org", 13)}) {
        RecordingLog::Clear();
        EXPECT_FALSE(Perform(peer.Host() + tail));
        EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(peer.Host() + " is not a valid IP"));
    }
    EXPECT_THAT(SocketCalls::Connects(), IsEmpty());
}

TEST_F(TOstelApplicationRemoteBadInput, WhatCannotBeAJsonTextIsSentAsNull) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.SetParamRemote(peer.Host(), "\xff", "\xc3", true), RC_SUCCESS);
    EXPECT_THAT(
        peer.Requests(),
        ElementsAre(R"({"REQUEST_TYPE":"SET_PARAM","NAME":null,"VALUE":null,"COMMIT":true})"));
}

TEST_F(TOstelApplicationRemoteBadInput, AnEmptyRequestIsSentAsNothing) {
    const TlsPeer peer({}, [](TlsPeer::TConnection& connection) {
        connection.Send(TlsPeer::Framed(OK_REPLY));
        connection.Receive();
    });
    EXPECT_TRUE(m_App.PerformRemoteRequest("", peer.Host(), m_Reply, nullptr));
    EXPECT_EQ(m_Reply, OK_REPLY);
}

class TOstelApplicationRemoteLeaks : public RemoteTlsTest {
protected:
    // One failure of each kind that there is.
    void FailInEveryWay() {
        const std::string answer = TlsPeer::Framed(OK_REPLY, "0123456789");
        std::vector<char> binary;
        for (const std::string& bytes :
             {std::string(), answer.substr(0, 7), answer.substr(0, 12),
              answer.substr(0, answer.size() - 2), TlsPeer::Length(4097),
              TlsPeer::Length(15) + TlsPeer::Length(1048576) + OK_REPLY}) {
            AnswerWith(bytes);
            // Long enough for a peer that speaks TLS to see that this is not.
            EXPECT_FALSE(m_App.PerformRemoteRequest(R"({"REQUEST_TYPE":"GET_FILE"})", m_Peer.Host(),
                                                    m_Reply, &binary));
            ++m_Failures;
        }
        AnswerWith(TlsPeer::Framed("{garbage"));
        EXPECT_EQ(m_App.CommitRemote(m_Peer.Host()), RC_FAILURE);
        EXPECT_EQ(m_App.CommitRemote(TlsPeer::FreeHost()), RC_FAILURE);
        EXPECT_EQ(m_App.CommitRemote("::1"), RC_FAILURE);
        EXPECT_EQ(m_App.CommitRemote("nowhere"), RC_FAILURE);
        m_Failures += 4;
        m_Connections += 7;
        RecordingLog::Clear();
        SocketCalls::Clear();
    }

    // In plain text, through TLS, and against a peer that is not trusted.
    void FailUnderAllCertificates() {
        EXPECT_FALSE(Enable("/nonexistent/"));
        FailInEveryWay();
        EXPECT_TRUE(Enable(m_Unit));
        FailInEveryWay();
        EXPECT_TRUE(m_App.EnableSecureRemote(m_Unit + "ostel.cert.pem", m_Unit + "ostel.key.pem",
                                             m_Other + "ostel.cert.pem"));
        FailInEveryWay();
        EXPECT_FALSE(Enable(m_WrongKey));
    }

    void FailTimes(int count) {
        for (m_Failures = 0; m_Failures < count;) {
            FailUnderAllCertificates();
        }
    }

    // It has heard of the end of every connection.
    void WaitForPeer() {
        ASSERT_TRUE(WaitUntil([&] { return m_Peer.Ended() == m_Connections; }));
    }

    void AnswerWith(const std::string& bytes) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Answer = bytes;
    }

    const std::string m_Other = m_Certificates.SelfSigned("other");
    const std::string m_WrongKey = m_Certificates.WrongKey("wrong key");
    std::mutex m_Mutex;
    std::string m_Answer;
    int m_Failures = 0;
    int m_Connections = 0;
    TlsPeer m_Peer{{m_Certificates.Unit("peer")}, [this](TlsPeer::TConnection& connection) {
                       connection.Receive();
                       const std::lock_guard<std::mutex> lock(m_Mutex);
                       connection.Send(m_Answer);
                   }};
};

TEST_F(TOstelApplicationRemoteLeaks, AThousandFailuresKeepNeitherDescriptorsNorMemory) {
    FailTimes(200);  // what is kept for good is there by then
    WaitForPeer();
    const auto descriptors = Resources::Descriptors();
    const auto memory = mallinfo2().uordblks;
    FailTimes(1000);
    WaitForPeer();
    EXPECT_EQ(Resources::Descriptors(), descriptors);
    // A TLS session takes 10 KB. The allocator's own stores may grow by some 200 KB, and the peer
    // keeps its requests, 100 bytes each; what is smaller than that is LeakSanitizer's to find.
    EXPECT_LT(mallinfo2().uordblks, memory + 400000);
}

}  // namespace
