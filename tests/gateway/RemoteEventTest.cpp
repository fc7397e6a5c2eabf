// Events that go to other units, which take them or do not.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <string>

#include "CertificateMaker.h"
#include "RemoteService.h"
#include "TlsPeer.h"

namespace {

using std::chrono::milliseconds;

class Delivering : public testing::Test {
protected:
    // As the gateway does.
    void SetUp() override { signal(SIGPIPE, SIG_IGN); }

    bool Send(const std::string& host, milliseconds limit = std::chrono::seconds(10)) {
        return SendRemoteEvent(m_Context, host, "EVENT", "data", m_Stop,
                               std::chrono::steady_clock::now() + limit);
    }

    CertificateMaker m_Certificates;
    const TTlsContext m_Context{m_Certificates.Unit("unit")};
    const std::string m_PeersUnit = m_Certificates.Unit("peer");
    TStopSignal m_Stop;
};

TEST_F(Delivering, SendsAnEventAndWantsAnOk) {
    const std::string ok = R"({"STATUS":"OK"})";
    {
        const TlsPeer peer({m_PeersUnit}, TlsPeer::Framed(ok));
        EXPECT_TRUE(Send(peer.Host()));
        EXPECT_EQ(peer.Requests().at(0),
                  R"({"REQUEST_TYPE":"SEND_EVENT","EVENT_NAME":"EVENT","EVENT_DATA":"data"})");
    }
    {
        const TlsPeer peer({m_PeersUnit}, TlsPeer::Framed(ok + std::string(4096 - ok.size(), ' ')));
        EXPECT_TRUE(Send(peer.Host()));
    }
    for (const std::string& answer :
         {TlsPeer::Framed(R"({"STATUS":"NO"})"), TlsPeer::Framed("nonsense"), TlsPeer::Framed("{}"),
          TlsPeer::Framed(ok + std::string(4097 - ok.size(), ' ')),
          TlsPeer::Length(100) + TlsPeer::Length(0) + ok, std::string("\1\0\0", 3)}) {
        const TlsPeer peer({m_PeersUnit}, answer);
        EXPECT_FALSE(Send(peer.Host())) << answer;
    }
}

TEST_F(Delivering, FailsAtAStrangerAndAtNobody) {
    EXPECT_FALSE(Send(TlsPeer::FreeHost()));
    const TlsPeer stranger({m_Certificates.SelfSigned("stranger")},
                           TlsPeer::Framed(R"({"STATUS":"OK"})"));
    EXPECT_FALSE(Send(stranger.Host()));
}

TEST_F(Delivering, DoesNotWaitBeyondItsDeadline) {
    const TlsPeer silent({m_PeersUnit}, [](TlsPeer::TConnection& connection) {
        while (!connection.Receive().empty()) {
        }
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Send(silent.Host(), milliseconds(200)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    m_Stop.Raise();
    EXPECT_FALSE(Send(silent.Host()));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

}  // namespace
