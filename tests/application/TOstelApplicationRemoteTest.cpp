// Requests to another unit and their answers, over a connection in plain text.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "RemoteTest.h"
#include "Resources.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

class TOstelApplicationRemote : public RemoteTest {};

TEST_F(TOstelApplicationRemote, CommitsOnAnotherUnit) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_THAT(peer.Requests(), ElementsAre(R"({"REQUEST_TYPE":"COMMIT"})"));
}

TEST_F(TOstelApplicationRemote, ReadsParametersOfAnotherUnit) {
    const TlsPeer peer({}, TlsPeer::Framed(R"({"PARAMS":[{"NAME":"Device.A","VALUE":"1"},)"
                                           R"({"NAME":"Device.B"}],"STATUS":"OK"})"));
    TParams params{{"old", "old"}, {"old", "old"}, {"old", "old"}};
    EXPECT_EQ(m_App.GetParamRemote(peer.Host(), "Device.", params), RC_SUCCESS);
    EXPECT_THAT(params, ElementsAre(IsParam("Device.A", "1"), IsParam("Device.B", "")));
    EXPECT_THAT(peer.Requests(), ElementsAre(R"({"REQUEST_TYPE":"GET_PARAM","NAME":"Device."})"));
}

TEST_F(TOstelApplicationRemote, SetsAParameterOfAnotherUnit) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.SetParamRemote(peer.Host(), "Device.A", "a \"b\"", true), RC_SUCCESS);
    EXPECT_EQ(m_App.SetParamRemote(peer.Host(), "Device.A", "", false), RC_SUCCESS);
    EXPECT_THAT(
        peer.Requests(),
        ElementsAre(
            R"({"REQUEST_TYPE":"SET_PARAM","NAME":"Device.A","VALUE":"a \"b\"","COMMIT":true})",
            R"({"REQUEST_TYPE":"SET_PARAM","NAME":"Device.A","VALUE":"","COMMIT":false})"));
}

TEST_F(TOstelApplicationRemote, SendsAnEventToAnotherUnit) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    EXPECT_EQ(m_App.SendEventRemote(peer.Host(), "NAME", R"({"A":1})"), RC_SUCCESS);
    EXPECT_THAT(
        peer.Requests(),
        ElementsAre(
            R"({"REQUEST_TYPE":"SEND_EVENT","EVENT_NAME":"NAME","EVENT_DATA":"{\"A\":1}"})"));
}

TEST_F(TOstelApplicationRemote, FetchesAFileOfAnotherUnit) {
    const std::string file("\0 any \xff bytes", 13);
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY, file));
    std::vector<char> data(99, 'x');
    EXPECT_EQ(m_App.GetFileRemote(peer.Host(), "log.txt", data), RC_SUCCESS);
    EXPECT_EQ(std::string(data.begin(), data.end()), file);
    EXPECT_THAT(peer.Requests(),
                ElementsAre(R"({"REQUEST_TYPE":"GET_FILE","FILE_NAME":"log.txt"})"));
}

TEST_F(TOstelApplicationRemote, AnEmptyFileIsAFile) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    std::vector<char> data(99, 'x');
    EXPECT_EQ(m_App.GetFileRemote(peer.Host(), "empty", data), RC_SUCCESS);
    EXPECT_THAT(data, IsEmpty());
}

TEST_F(TOstelApplicationRemote, ABinaryPartThatNobodyAskedForIsLeftUnread) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY, "unwanted"));
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_THAT(ErrorsButPlainText(), IsEmpty());
}

TEST_F(TOstelApplicationRemote, ABinaryLengthTooBigDoesNotMatterToWhoDoesNotAskForIt) {
    const TlsPeer peer({}, TlsPeer::Length(15) + TlsPeer::Length(0xFFFFFFFF) + OK_REPLY);
    EXPECT_TRUE(Perform(peer.Host()));
    EXPECT_EQ(m_Reply, OK_REPLY);
}

// The peer's server takes the request from what arrives, so it must come in one piece.
TEST_F(TOstelApplicationRemote, ARequestIsOneSendOfItsTextWithoutFrameOrTerminator) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    SocketCalls::Clear();
    EXPECT_TRUE(m_App.PerformRemoteRequest("any text", peer.Host(), m_Reply, nullptr));
    EXPECT_THAT(peer.Requests(), ElementsAre("any text"));
    EXPECT_THAT(SocketCalls::SendsOf("any text"), ElementsAre(0)) << "one, without flags";
}

TEST_F(TOstelApplicationRemote, LogsTheHostAndTheRequest) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    EXPECT_TRUE(Perform(peer.Host()));
    const std::string prefix =
        R"(\[application-lib/TOstelApplication:[0-9]+\]\[PerformRemoteRequest\]: )";
    EXPECT_THAT(RecordingLog::Texts(6),
                ElementsAre(MatchesRegex(prefix + peer.Host() + " is a valid IPv4"),
                            MatchesRegex(prefix + peer.Host() + R"(:42042. Request: \{\})")));
}

TEST_F(TOstelApplicationRemote, APeerThatCannotBeReachedIsGivenUpAfterOneRepetition) {
    const std::string host = TlsPeer::FreeHost();
    EXPECT_FALSE(Perform(host));
    EXPECT_THAT(ErrorsButPlainText(), ElementsAre("Failed to connect to " + host + ":42042"));
    const auto options = SocketCalls::Options();
    ASSERT_THAT(options, SizeIs(2));
    EXPECT_EQ(options[0].level, SOL_SOCKET);
    EXPECT_EQ(options[0].option, SO_REUSEADDR);
    EXPECT_EQ(options[0].value, 1);
    EXPECT_EQ(options[1].level, IPPROTO_TCP);
    EXPECT_EQ(options[1].option, TCP_SYNCNT);
    EXPECT_EQ(options[1].value, 1);
}

TEST_F(TOstelApplicationRemote, ConnectsWithTheLengthOfAnIpv4Address) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    EXPECT_TRUE(Perform(peer.Host()));
    const auto connects = SocketCalls::Connects();
    ASSERT_THAT(connects, SizeIs(1));
    EXPECT_EQ(connects[0].family, AF_INET);
    EXPECT_EQ(connects[0].length, 16U);
}

// Kept as it is for the units' networks: an IPv6 address is understood and then refused.
TEST_F(TOstelApplicationRemote, ConnectsWithThatLengthForIpv6Too) {
    for (const char* host : {"::1", "::ffff:127.0.0.1", "fe80::1"}) {
        SocketCalls::Clear();
        RecordingLog::Clear();
        EXPECT_FALSE(Perform(host));
        EXPECT_THAT(
            RecordingLog::Texts(6),
            ElementsAre(MatchesRegex(
                R"(\[application-lib/TOstelApplication:[0-9]+\]\[PerformRemoteRequest\]: )" +
                std::string(host) + " is a valid IPv6")));
        EXPECT_THAT(ErrorsButPlainText(),
                    ElementsAre("Failed to connect to " + std::string(host) + ":42042"));
        const auto connects = SocketCalls::Connects();
        ASSERT_THAT(connects, SizeIs(1));
        EXPECT_EQ(connects[0].family, AF_INET6);
        EXPECT_EQ(connects[0].length, 16U);
    }
}

TEST_F(TOstelApplicationRemote, ASocketThatTakesNoOptionIsClosedUnused) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    SocketCalls::Clear();
    SocketCalls::FailOption(SOL_SOCKET, SO_REUSEADDR);
    const auto before = Resources::Descriptors();
    EXPECT_FALSE(Perform(peer.Host()));
    EXPECT_THAT(ErrorsButPlainText(), ElementsAre("setsockopt is failed"));
    EXPECT_THAT(SocketCalls::Connects(), IsEmpty());
    EXPECT_EQ(Resources::Descriptors(), before);
}

TEST_F(TOstelApplicationRemote, TheRepetitionsAreNoConditionOfTheRequest) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    SocketCalls::FailOption(IPPROTO_TCP, TCP_SYNCNT);
    EXPECT_TRUE(Perform(peer.Host()));
}

TEST_F(TOstelApplicationRemote, ReadsTheAnswerEvenWhenTheRequestCouldNotBeSent) {
    const TlsPeer peer({}, [](TlsPeer::TConnection& connection) {
        connection.Send(TlsPeer::Framed(OK_REPLY));
        connection.Receive();
    });
    SocketCalls::FailSendsOf("{}");
    EXPECT_TRUE(Perform(peer.Host()));
    EXPECT_EQ(m_Reply, OK_REPLY);
    EXPECT_THAT(ErrorsButPlainText(),
                ElementsAre("Could not send the request to " + peer.Host() + ":42042."));
}

TEST_F(TOstelApplicationRemote, EachRequestHasItsOwnConnection) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    SocketCalls::Clear();
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_EQ(m_App.CommitRemote(peer.Host()), RC_SUCCESS);
    EXPECT_THAT(SocketCalls::Connects(), SizeIs(2));
}

TEST_F(TOstelApplicationRemote, WaitsForAPeerThatSaysNothing) {
    ExpectToWaitForASilentPeer();
}

}  // namespace
