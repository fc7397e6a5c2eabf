#include "Subscriptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PeerDouble.h"
#include "RecordingLog.h"
#include "RemoteProtocol.h"
#include "WaitUntil.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

class Subscriptions : public testing::Test {
protected:
    PeerDouble m_Peer;
    TSubscriptions m_Subscriptions{"SERIAL", m_Peer.Send(), Hasty()};
};

TEST_F(Subscriptions, TellWhatWasSubscribedTo) {
    EXPECT_TRUE(m_Subscriptions.Add("10.0.0.1", "S1", {"Device.A", "Device.B.", "Device.*.C"}));
    struct TChange {
        const char* name;
        bool isTold;
    };
    // The last is told of behind whatever would be told of before.
    const TChange changes[] = {
        {"Device.A", true},     {"Device.A.X", false},   {"Device.B", false}, {"Device.B.X", true},
        {"Device.B.X.Y", true}, {"Device.X.Y.C", false}, {"Other", false},    {"Device.X.C", true}};
    std::size_t told = 0;
    for (const TChange& change : changes) {
        m_Subscriptions.OnChange(change.name, "v");
        told += change.isTold ? 1 : 0;
        ASSERT_TRUE(m_Peer.WaitForTexts(told)) << change.name;
    }
    EXPECT_THAT(
        m_Peer.Texts(),
        ElementsAre(R"(10.0.0.1 {"SERIAL_NUMBER":"SERIAL","NAME":"Device.A","VALUE":"v"})",
                    R"(10.0.0.1 {"SERIAL_NUMBER":"SERIAL","NAME":"Device.B.X","VALUE":"v"})",
                    R"(10.0.0.1 {"SERIAL_NUMBER":"SERIAL","NAME":"Device.B.X.Y","VALUE":"v"})",
                    R"(10.0.0.1 {"SERIAL_NUMBER":"SERIAL","NAME":"Device.X.C","VALUE":"v"})"));
}

TEST_F(Subscriptions, ReachAPeerOnceHoweverManySubscribersItHas) {
    m_Subscriptions.Add("10.0.0.1", "S1", {"A"});
    m_Subscriptions.Add("10.0.0.1", "S2", {"A"});
    m_Subscriptions.Add("10.0.0.2", "S3", {"A"});
    m_Subscriptions.OnChange("A", "1");
    EXPECT_TRUE(m_Peer.WaitForTexts(2));
    m_Subscriptions.Remove("10.0.0.1", "S1", {"A"});
    m_Subscriptions.OnChange("A", "2");
    EXPECT_TRUE(m_Peer.WaitForTexts(4));
    m_Subscriptions.Remove("10.0.0.1", "S2", {"A"});
    m_Subscriptions.Remove("10.0.0.1", "S2", {"A"});
    m_Subscriptions.Remove("10.0.0.2", "S1", {"A"});
    m_Subscriptions.Remove("10.0.0.2", "S3", {"B"});
    m_Subscriptions.OnChange("A", "3");
    EXPECT_TRUE(m_Peer.WaitForTexts(5));
    EXPECT_THAT(m_Peer.Texts().back(), HasSubstr("10.0.0.2"));
}

TEST(SubscriptionsAtTheEnd, DoNotWaitForAPeerThatHangs) {
    PeerDouble peer;
    peer.m_Hangs = true;
    const auto start = std::chrono::steady_clock::now();
    {
        TSubscriptions subscriptions("SERIAL", peer.Send());
        subscriptions.Add("10.0.0.1", "S1", {"A"});
        subscriptions.OnChange("A", "1");
        EXPECT_TRUE(WaitUntil([&] { return peer.m_Attempts > 0; }));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

TEST_F(Subscriptions, TellWhateverFitsIntoARequest) {
    m_Subscriptions.Add("10.0.0.1", "S1", {"A"});
    const std::string empty = R"({"SERIAL_NUMBER":"SERIAL","NAME":"A","VALUE":""})";
    const std::size_t envelope =
        RemoteProtocol::EventRequest(RemoteProtocol::CHANGE_EVENT, empty).size();
    const std::string value(RemoteProtocol::LARGEST_REQUEST - envelope, 'v');
    m_Subscriptions.OnChange("A", value + "v");
    EXPECT_EQ(RecordingLog::Count(2, "The value of A is too long to be told to other units"), 1);
    // A quote takes four characters in there.
    m_Subscriptions.OnChange("A", std::string(value.size() / 4 + 1, '"'));
    EXPECT_EQ(RecordingLog::Count(2, "The value of A is too long to be told to other units"), 2);
    m_Subscriptions.OnChange("A", value);
    ASSERT_TRUE(m_Peer.WaitForTexts(1));
    EXPECT_TRUE(m_Peer.Texts()[0] ==
                R"(10.0.0.1 {"SERIAL_NUMBER":"SERIAL","NAME":"A","VALUE":")" + value + "\"}");
}

TEST_F(Subscriptions, HaveALimitOfPeers) {
    for (int i = 0; i < 64; ++i) {
        EXPECT_TRUE(m_Subscriptions.Add("10.0.0." + std::to_string(i), "S", {"A"}));
    }
    EXPECT_FALSE(m_Subscriptions.Add("10.0.1.1", "S", {"A"}));
    EXPECT_TRUE(m_Subscriptions.Add("10.0.0.1", "T", {"A"}));
}

TEST_F(Subscriptions, GiveThePlaceOfAPeerThatIsGoneToANewOne) {
    for (int i = 0; i < 64; ++i) {
        EXPECT_TRUE(m_Subscriptions.Add("10.0.0." + std::to_string(i), "S",
                                        {i == 7 || i == 8 ? "GONE" : "A"}));
    }
    m_Peer.m_Refuses = 1000;
    m_Subscriptions.OnChange("GONE", "1");
    for (const char* address : {"10.0.0.7", "10.0.0.8"}) {
        EXPECT_TRUE(RecordingLog::WaitFor(2, std::string(address) + " cannot be reached"));
    }
    m_Peer.m_Refuses = 0;
    // One of them is back.
    EXPECT_TRUE(m_Subscriptions.Add("10.0.0.7", "S", {"A"}));
    EXPECT_TRUE(m_Subscriptions.Add("10.0.1.1", "S", {"NEW"}));
    EXPECT_EQ(RecordingLog::Count(3, "10.0.0.8 is gone, its subscriptions make room for 10.0.1.1"),
              1);
    EXPECT_FALSE(m_Subscriptions.Add("10.0.1.2", "S", {"NEW"}));
    m_Subscriptions.OnChange("NEW", "1");
    EXPECT_TRUE(m_Peer.WaitForTexts(1));
    EXPECT_THAT(m_Peer.Texts().back(), HasSubstr("10.0.1.1"));
}

TEST_F(Subscriptions, ThatAreTooManyCostNobodyAPlace) {
    std::vector<std::string> tooMany;
    for (std::size_t i = 0; i <= TSubscribedNames::MOST_NAMES; ++i) {
        tooMany.push_back("N" + std::to_string(i));
    }
    EXPECT_FALSE(m_Subscriptions.Add("10.0.0.1", "S", tooMany));
    for (int i = 0; i < 64; ++i) {
        EXPECT_TRUE(m_Subscriptions.Add("10.0.1." + std::to_string(i), "S", {"A"}));
    }
}

TEST_F(Subscriptions, ToNothingTakeNoRoom) {
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(m_Subscriptions.Add("10.0.0." + std::to_string(i), "S", {}));
    }
    EXPECT_TRUE(m_Subscriptions.Add("10.0.1.1", "S", {"A"}));
}

}  // namespace
