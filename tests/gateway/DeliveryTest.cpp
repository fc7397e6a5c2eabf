#include "Delivery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

#include "PeerDouble.h"
#include "RecordingLog.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using TClock = std::chrono::steady_clock;

// Does not give up while a test waits.
TDelivery::TPatience HastyForLong() {
    TDelivery::TPatience patience = Hasty();
    patience.total = std::chrono::seconds(60);
    return patience;
}

TEST(TDelivery, SendsTextsInTheirOrder) {
    PeerDouble peer;
    TDelivery delivery("peer", peer.Send(), Hasty());
    for (const char* text : {"1", "2", "3"}) {
        delivery.Push(text);
    }
    ASSERT_TRUE(peer.WaitForTexts(3));
    EXPECT_THAT(peer.Texts(), ElementsAre("peer 1", "peer 2", "peer 3"));
}

TEST(TDelivery, TriesAgainUntilThePeerTakesIt) {
    PeerDouble peer;
    peer.m_Refuses = 3;
    TDelivery delivery("peer", peer.Send(), HastyForLong());
    delivery.Push("1");
    ASSERT_TRUE(peer.WaitForTexts(1));
    EXPECT_EQ(peer.m_Attempts, 4);
}

TEST(TDelivery, PausesTwiceAsLongEachTime) {
    PeerDouble peer;
    peer.m_Refuses = 4;
    TDelivery::TPatience patience;
    patience.firstPause = milliseconds(10);
    TDelivery delivery("peer", peer.Send(), patience);
    delivery.Push("1");
    ASSERT_TRUE(peer.WaitForTexts(1));
    const std::vector<TDeadline> times = peer.Times();
    ASSERT_EQ(times.size(), 5U);
    for (std::size_t i = 1; i < times.size(); ++i) {
        EXPECT_GE(times[i] - times[i - 1], patience.firstPause * (1 << (i - 1))) << i;
    }
}

TEST(TDelivery, PausesNoLongerThanItMay) {
    PeerDouble peer;
    peer.m_Refuses = 30;
    TDelivery::TPatience patience;
    patience.firstPause = milliseconds(2);
    patience.longestPause = milliseconds(4);
    TDelivery delivery("peer", peer.Send(), patience);
    delivery.Push("1");
    // Twice as long each time, it would be years.
    EXPECT_TRUE(peer.WaitForTexts(1));
}

TEST(TDelivery, IsPatientForHalfAMinute) {
    const TDelivery::TPatience patience;
    EXPECT_EQ(patience.total, std::chrono::seconds(30));
    EXPECT_EQ(patience.attempt, std::chrono::seconds(5));
    EXPECT_EQ(patience.firstPause, milliseconds(500));
    EXPECT_EQ(patience.longestPause, std::chrono::seconds(8));
    EXPECT_EQ(patience.mostWaiting, 1000U);
}

TEST(TDelivery, GivesEachAttemptItsTime) {
    PeerDouble peer;
    peer.m_Hangs = true;
    TDelivery delivery("peer", peer.Send(), HastyForLong());
    delivery.Push("1");
    EXPECT_TRUE(WaitUntil([&] { return peer.m_Attempts > 1; }));
}

TEST(TDelivery, DropsWhatThePeerDoesNotTakeInTime) {
    PeerDouble peer;
    peer.m_Refuses = 1000;
    TDelivery delivery("peer", peer.Send(), Hasty());
    EXPECT_FALSE(delivery.LostSince());
    delivery.Push("1");
    ASSERT_TRUE(RecordingLog::WaitFor(2, "peer cannot be reached, changes dropped: 1"));
    EXPECT_TRUE(delivery.LostSince());
    peer.m_Refuses = 0;
    delivery.Push("2");
    ASSERT_TRUE(peer.WaitForTexts(1));
    EXPECT_THAT(peer.Texts(), ElementsAre("peer 2"));
    EXPECT_TRUE(WaitUntil([&] { return !delivery.LostSince(); }));
}

// How many changes each line of the log says were dropped.
std::vector<int> Dropped() {
    const std::string line = "peer cannot be reached, changes dropped: ";
    std::vector<int> dropped;
    for (const std::string& text : RecordingLog::Texts(2)) {
        if (text.compare(0, line.size(), line) == 0) {
            dropped.push_back(std::stoi(text.substr(line.size())));
        }
    }
    return dropped;
}

TEST(TDelivery, TheTimeOfATextStartsWithItsPush) {
    PeerDouble peer;
    peer.m_Hangs = true;
    TDelivery::TPatience patience = Hasty();
    patience.mostWaiting = 100;
    TDelivery delivery("peer", peer.Send(), patience);
    const auto start = TClock::now();
    for (int i = 0; i < 100; ++i) {
        delivery.Push(std::to_string(i));
    }
    // One after the other, they would take a hundred times as long.
    std::vector<int> dropped;
    EXPECT_TRUE(WaitUntil([&] {
        dropped = Dropped();
        return std::accumulate(dropped.begin(), dropped.end(), 0) == 100;
    }));
    EXPECT_LT(TClock::now() - start, 50 * patience.total);
    // They are told of together, but for those that a busy machine pushes later.
    EXPECT_LT(dropped.size(), 20U);
}

TEST(TDelivery, APeerThatTakesTextsSlowlyLosesNone) {
    std::atomic<int> taken{0};
    TDelivery::TPatience patience = Hasty();
    patience.total = milliseconds(20);
    patience.mostWaiting = 10;
    TDelivery delivery(
        "peer",
        [&](const std::string&, const std::string&, const TStopSignal& stop, TDeadline) {
            WaitFor(-1, 0, stop, TClock::now() + milliseconds(10));
            ++taken;
            return true;
        },
        patience);
    for (int i = 0; i < 10; ++i) {
        delivery.Push("x");
    }
    EXPECT_TRUE(WaitUntil([&] { return taken == 10; }));
}

TEST(TDelivery, ASignOfLifeMakesUpForWhatWasLost) {
    PeerDouble peer;
    peer.m_Refuses = 1000;
    TDelivery delivery("peer", peer.Send(), Hasty());
    delivery.Push("1");
    ASSERT_TRUE(WaitUntil([&] { return delivery.LostSince(); }));
    delivery.OnSignOfLife();
    EXPECT_FALSE(delivery.LostSince());
}

TEST(TDelivery, DropsTheOldestWhenTooManyWait) {
    PeerDouble peer;
    peer.m_Refuses = 1;
    TDelivery::TPatience patience;
    patience.firstPause = std::chrono::seconds(1);
    patience.mostWaiting = 3;
    TDelivery delivery("peer", peer.Send(), patience);
    delivery.Push("under way");
    ASSERT_TRUE(WaitUntil([&] { return peer.m_Attempts == 1; }));
    for (const char* text : {"1", "2", "3", "4", "5"}) {
        delivery.Push(text);
    }
    EXPECT_EQ(RecordingLog::Count(2, "peer: too many changes are waiting, one is dropped"), 2);
    ASSERT_TRUE(peer.WaitForTexts(4));
    EXPECT_THAT(peer.Texts(), ElementsAre("peer under way", "peer 3", "peer 4", "peer 5"));
}

TEST(TDelivery, DoesNotWaitForAPeerThatHangs) {
    PeerDouble peer;
    peer.m_Hangs = true;
    const std::vector<std::string> before = RecordingLog::Texts(2);
    const auto start = TClock::now();
    {
        TDelivery delivery("peer", peer.Send(), TDelivery::TPatience());
        for (int i = 0; i < 100; ++i) {
            delivery.Push("x");
        }
        EXPECT_TRUE(WaitUntil([&] { return peer.m_Attempts > 0; }));
    }
    EXPECT_LT(TClock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(RecordingLog::Texts(2), before);
}

}  // namespace
