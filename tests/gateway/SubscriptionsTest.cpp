#include "Subscriptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RecordingLog.h"
#include "WaitUntil.h"

namespace {

using std::chrono::milliseconds;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

// A peer that is asked to take texts; it refuses the first so many.
class TPeerDouble {
public:
    TDelivery::TSend Send() {
        return [this](const std::string& address, const std::string& text, const TStopSignal& stop,
                      TDeadline deadline) {
            ++m_Attempts;
            if (m_Hangs) {
                WaitFor(-1, 0, stop, deadline);
                return false;
            }
            if (m_Refuses > 0) {
                --m_Refuses;
                return false;
            }
            const std::lock_guard<std::mutex> lock(m_Mutex);
            m_Texts.push_back(address + " " + text);
            return true;
        };
    }

    bool WaitForTexts(std::size_t count) {
        return WaitUntil([&] { return Texts().size() >= count; });
    }

    std::vector<std::string> Texts() {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Texts;
    }

    std::atomic<int> m_Attempts{0};
    std::atomic<int> m_Refuses{0};
    std::atomic<bool> m_Hangs{false};

private:
    std::mutex m_Mutex;
    std::vector<std::string> m_Texts;
};

TDelivery::TPatience Hasty() {
    TDelivery::TPatience patience;
    patience.firstPause = milliseconds(5);
    patience.attempt = milliseconds(50);
    patience.total = milliseconds(200);
    patience.mostWaiting = 3;
    return patience;
}

class Subscriptions : public testing::Test {
protected:
    TPeerDouble m_Peer;
    TSubscriptions m_Subscriptions{"SERIAL", m_Peer.Send(), Hasty()};
};

TEST_F(Subscriptions, TellWhatWasSubscribedTo) {
    EXPECT_TRUE(m_Subscriptions.Add("10.0.0.1", "S1", {"Device.A", "Device.B.", "Device.*.C"}));
    for (const char* name : {"Device.A", "Device.A.X", "Device.B", "Device.B.X", "Device.B.X.Y",
                             "Device.X.C", "Device.X.Y.C", "Other"}) {
        m_Subscriptions.OnChange(name, "v");
        const std::size_t count = m_Peer.Texts().size();
        WaitUntil([&] { return m_Peer.Texts().size() > count; }, milliseconds(20));
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

TEST_F(Subscriptions, TryAgainUntilThePeerTakesIt) {
    m_Peer.m_Refuses = 3;
    m_Subscriptions.Add("10.0.0.1", "S1", {"A"});
    m_Subscriptions.OnChange("A", "1");
    EXPECT_TRUE(m_Peer.WaitForTexts(1));
    EXPECT_EQ(m_Peer.m_Attempts, 4);
}

TEST_F(Subscriptions, DropWhatAPeerDoesNotTakeInTime) {
    m_Peer.m_Refuses = 1000;
    m_Subscriptions.Add("10.0.0.1", "S1", {"A"});
    m_Subscriptions.OnChange("A", "1");
    EXPECT_TRUE(WaitUntil([] {
        const auto texts = RecordingLog::Texts(2);
        return std::find(texts.begin(), texts.end(),
                         "10.0.0.1 cannot be reached, a change is dropped") != texts.end();
    }));
    m_Peer.m_Refuses = 0;
    m_Subscriptions.OnChange("A", "2");
    EXPECT_TRUE(m_Peer.WaitForTexts(1));
    EXPECT_THAT(m_Peer.Texts().back(), HasSubstr(R"("VALUE":"2")"));
}

TEST_F(Subscriptions, AreNotHeldUpByAPeerThatHangs) {
    m_Peer.m_Hangs = true;
    m_Subscriptions.Add("10.0.0.1", "S1", {"A"});
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        m_Subscriptions.OnChange("A", std::to_string(i));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(200));
    EXPECT_THAT(RecordingLog::Texts(2),
                Contains("10.0.0.1: too many changes are waiting, one is dropped"));
}

TEST(SubscriptionsAtTheEnd, DoNotWaitForAPeerThatHangs) {
    TPeerDouble peer;
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

TEST_F(Subscriptions, DoNotTellWhatIsTooLong) {
    m_Subscriptions.Add("10.0.0.1", "S1", {"A"});
    m_Subscriptions.OnChange("A", std::string(40000, 'v'));
    EXPECT_THAT(RecordingLog::Texts(2),
                Contains("10.0.0.1: the value of A is too long to be told"));
}

TEST_F(Subscriptions, HaveALimitOfPeers) {
    for (int i = 0; i < 64; ++i) {
        EXPECT_TRUE(m_Subscriptions.Add("10.0.0." + std::to_string(i), "S", {"A"}));
    }
    EXPECT_FALSE(m_Subscriptions.Add("10.0.1.1", "S", {"A"}));
    EXPECT_TRUE(m_Subscriptions.Add("10.0.0.1", "T", {"A"}));
}

TEST_F(Subscriptions, HaveALimitOfNamesAtEachPeer) {
    const std::string peer = "10.0.0.1";
    for (int i = 0; i < 4096; ++i) {
        ASSERT_TRUE(m_Subscriptions.Add(peer, "S" + std::to_string(i), {"A"}));
    }
    EXPECT_FALSE(m_Subscriptions.Add(peer, "one more", {"A"}));
    EXPECT_TRUE(m_Subscriptions.Add("10.0.0.2", "S", {"A"}));
    m_Subscriptions.Remove(peer, "S0", {"A"});
    EXPECT_TRUE(m_Subscriptions.Add(peer, "one more", {"A"}));
}

TEST_F(Subscriptions, ToNothingTakeNoRoom) {
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(m_Subscriptions.Add("10.0.0." + std::to_string(i), "S", {}));
    }
    EXPECT_TRUE(m_Subscriptions.Add("10.0.1.1", "S", {"A"}));
}

}  // namespace
