// Observers and the timer. Alarms, callbacks and the system's clock have files of their own.
#include "TOstelClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstddef>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "BinaryLayout.h"
#include "ClockTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

struct TRunning {
    friend std::size_t OffsetOf(TRunning);
};
struct TTimerFd {
    friend std::size_t OffsetOf(TTimerFd);
};
struct TFifoFd {
    friend std::size_t OffsetOf(TFifoFd);
};
struct TAlarmTime {
    friend std::size_t OffsetOf(TAlarmTime);
};
struct TAlarmCondition {
    friend std::size_t OffsetOf(TAlarmCondition);
};
struct TTimerCondition {
    friend std::size_t OffsetOf(TTimerCondition);
};
struct TAlarmThread {
    friend std::size_t OffsetOf(TAlarmThread);
};
struct TTimerThread {
    friend std::size_t OffsetOf(TTimerThread);
};
struct TMonitorThread {
    friend std::size_t OffsetOf(TMonitorThread);
};
struct TClockObservers {
    friend std::size_t OffsetOf(TClockObservers);
};
struct TSystemTimeObservers {
    friend std::size_t OffsetOf(TSystemTimeObservers);
};
struct TMutex {
    friend std::size_t OffsetOf(TMutex);
};
struct TCallback {
    friend std::size_t OffsetOf(TCallback);
};
struct TNeeded {
    friend std::size_t OffsetOf(TNeeded);
};

template struct MemberOffset<TRunning, &TOstelClock::m_Running>;
template struct MemberOffset<TTimerFd, &TOstelClock::m_TimerFd>;
template struct MemberOffset<TFifoFd, &TOstelClock::m_FifoFd>;
template struct MemberOffset<TAlarmTime, &TOstelClock::m_AlarmTime>;
template struct MemberOffset<TAlarmCondition, &TOstelClock::m_AlarmCondition>;
template struct MemberOffset<TTimerCondition, &TOstelClock::m_TimerCondition>;
template struct MemberOffset<TAlarmThread, &TOstelClock::m_AlarmThread>;
template struct MemberOffset<TTimerThread, &TOstelClock::m_TimerThread>;
template struct MemberOffset<TMonitorThread, &TOstelClock::m_MonitorThread>;
template struct MemberOffset<TClockObservers, &TOstelClock::m_ClockObservers>;
template struct MemberOffset<TSystemTimeObservers, &TOstelClock::m_SystemTimeObservers>;
template struct MemberOffset<TMutex, &TOstelClock::m_Mutex>;
template struct MemberOffset<TCallback, &TOstelClock::m_TimerCallback>;
template struct MemberOffset<TNeeded, &TOstelClock::m_NeededByTimerCallback>;

namespace {

class TOstelClockTest : public ClockTest {
protected:
    TCountingObserver m_Observer;
};

TEST_F(TOstelClockTest, KeepsTheOrderOfItsMembersBehindTheVirtualTable) {
    static_assert(std::has_virtual_destructor_v<TOstelClock>);
    constexpr std::size_t word = sizeof(void*);
    constexpr std::size_t thread = sizeof(std::thread);
    constexpr std::size_t condition = sizeof(TOstelConditionVariable);
    constexpr std::size_t set = sizeof(std::set<IOstelClockObserver*>);
    constexpr std::size_t pointer = sizeof(std::shared_ptr<void>);
    EXPECT_EQ(OffsetOf(TRunning()), word);
    EXPECT_EQ(OffsetOf(TTimerFd()), word + 4);
    EXPECT_EQ(OffsetOf(TFifoFd()), word + 8);
    const std::size_t time = OffsetOf(TAlarmTime());
    EXPECT_EQ(time, sizeof(void*) == 8 ? 24U : 16U);
    const std::size_t alarm =
        BinaryLayout::Behind<TOstelConditionVariable>(time + sizeof(TOstelClockTime));
    EXPECT_EQ(OffsetOf(TAlarmCondition()), alarm);
    EXPECT_EQ(OffsetOf(TTimerCondition()), alarm + condition);
    const std::size_t threads = alarm + 2 * condition;
    EXPECT_EQ(OffsetOf(TAlarmThread()), threads);
    EXPECT_EQ(OffsetOf(TTimerThread()), threads + thread);
    EXPECT_EQ(OffsetOf(TMonitorThread()), threads + 2 * thread);
    const std::size_t sets = threads + 3 * thread;
    EXPECT_EQ(OffsetOf(TClockObservers()), sets);
    EXPECT_EQ(OffsetOf(TSystemTimeObservers()), sets + set);
    EXPECT_EQ(OffsetOf(TMutex()), sets + 2 * set);
    const std::size_t callback = sets + 2 * set + sizeof(std::mutex);
    EXPECT_EQ(OffsetOf(TCallback()), callback);
    EXPECT_EQ(OffsetOf(TNeeded()), callback + pointer);
    EXPECT_EQ(sizeof(TOstelClock), BinaryLayout::Behind<TOstelClock>(callback + 2 * pointer));
}

TEST_F(TOstelClockTest, ItsObserversHaveTheirCallbacksFirstAndNoDestructor) {
    using BinaryLayout::SlotOf;
    static_assert(!std::has_virtual_destructor_v<IOstelClockObserver>);
    static_assert(!std::has_virtual_destructor_v<IOstelSystemTimeObserver>);
    EXPECT_EQ(SlotOf(&IOstelClockObserver::OnAlarm), 0U);
    EXPECT_EQ(SlotOf(&IOstelClockObserver::OnTimer), 1U);
    EXPECT_EQ(SlotOf(&IOstelSystemTimeObserver::OnSystemTimeChanged), 0U);
}

class TOrderedObserver final : public IOstelClockObserver, public IOstelSystemTimeObserver {
public:
    void OnAlarm() override { Tell("alarm"); }
    void OnTimer() override { Tell("timer"); }
    void OnSystemTimeChanged() override { Tell("time"); }

    std::string name;
    std::vector<std::string>* told = nullptr;

private:
    void Tell(const std::string& what) const { told->push_back(name + " " + what); }
};

TEST_F(TOstelClockTest, TellsItsObserversOnceEachInTheOrderOfTheirAddresses) {
    std::vector<std::string> told;
    TOrderedObserver observers[3];
    for (TOrderedObserver& observer : observers) {
        observer.name = std::to_string(&observer - observers);
        observer.told = &told;
    }
    TOstelClock clock;
    for (const int i : {2, 0, 1, 2, 0}) {
        clock.AddClockObserver(&observers[i]);
        clock.AddSystemTimeObserver(&observers[i]);
    }
    clock.NotifyTimerObservers();
    EXPECT_THAT(told, ElementsAre("0 timer", "1 timer", "2 timer"));
    told.clear();
    clock.NotifyAlarmObservers();
    EXPECT_THAT(told, ElementsAre("0 alarm", "1 alarm", "2 alarm"));
    told.clear();
    clock.NotifySystemTimeObservers();
    EXPECT_THAT(told, ElementsAre("0 time", "1 time", "2 time"));
    told.clear();

    clock.RemoveClockObserver(&observers[1]);
    clock.RemoveClockObserver(&observers[1]);
    clock.NotifyTimerObservers();
    clock.NotifySystemTimeObservers();
    EXPECT_THAT(told, ElementsAre("0 timer", "2 timer", "0 time", "1 time", "2 time"));
    told.clear();
    clock.RemoveSystemTimeObserver(&observers[0]);
    clock.RemoveSystemTimeObserver(&observers[0]);
    clock.NotifyAlarmObservers();
    clock.NotifySystemTimeObservers();
    EXPECT_THAT(told, ElementsAre("0 alarm", "2 alarm", "1 time", "2 time"));
}

TEST_F(TOstelClockTest, ANullObserverIsLoggedAndNotAdded) {
    TOstelClock clock;
    clock.AddClockObserver(nullptr);
    clock.AddSystemTimeObserver(nullptr);
    EXPECT_EQ(RecordingLog::Count(2, "[TOstelClock] A null observer is not added."), 2);
    clock.RemoveClockObserver(nullptr);
    clock.RemoveSystemTimeObserver(nullptr);
    clock.NotifyTimerObservers();
    clock.NotifyAlarmObservers();
    clock.NotifySystemTimeObservers();
}

TEST_F(TOstelClockTest, ATimerOfZeroFiresAtOnceAndOnce) {
    TOstelClock clock;
    clock.AddClockObserver(&m_Observer);
    clock.SetTimer(0);
    ASSERT_TRUE(WaitUntil([this] { return m_Observer.timers == 1; }));
    clock.ResetTimer();
    EXPECT_EQ(m_Observer.timers, 1);
    EXPECT_EQ(m_Observer.alarms, 0);
    EXPECT_THAT(RecordedWaits::Of(clock), IsEmpty());
}

TEST_F(TOstelClockTest, ATimerFiresWhenItsSecondsAreOver) {
    TOstelClock clock;
    clock.AddClockObserver(&m_Observer);
    const auto start = std::chrono::steady_clock::now();
    clock.SetTimer(1);
    ASSERT_TRUE(WaitUntil([this] { return m_Observer.timers == 1; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(RecordedWaits::Of(clock).size(), 1U) << "fires once and waits no more";
}

TEST_F(TOstelClockTest, APeriodHasNoSign) {
    TOstelClock clock;
    clock.SetTimer(UINT_MAX);
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 1));
    // With 32-bit time as far as that reaches.
    const double most = sizeof(std::time_t) > 4 ? 4294967295.0 : 2000000000.0;
    EXPECT_GT(RecordedWaits::Of(clock)[0].seconds, most - 1.0);
    clock.ResetTimer();
}

TEST_F(TOstelClockTest, ATimerThatIsResetTellsNobody) {
    TOstelClock clock;
    clock.AddClockObserver(&m_Observer);
    clock.SetTimer(5);
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 1));
    clock.ResetTimer();
    clock.ResetTimer();
    EXPECT_EQ(m_Observer.timers, 0);
    EXPECT_NEAR(RecordedWaits::Of(clock)[0].seconds, 5.0, 1.0);
}

TEST_F(TOstelClockTest, ATimerReplacesTheOneBefore) {
    TOstelClock clock;
    clock.AddClockObserver(&m_Observer);
    clock.SetTimer(5);
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 1));
    RecordedWaits::Answer(ETIMEDOUT);  // the next one: the first wait has begun
    clock.SetTimer(10);
    ASSERT_TRUE(WaitUntil([this] { return m_Observer.timers == 1; }));
    clock.ResetTimer();
    EXPECT_EQ(m_Observer.timers, 1);
    const auto waits = RecordedWaits::Of(clock);
    ASSERT_EQ(waits.size(), 2U);
    EXPECT_NEAR(waits[1].seconds, 10.0, 1.0);
}

// Kept: nothing remembers a reset that comes before there is a wait to end.
TEST_F(TOstelClockTest, AResetBeforeTheWorkerWaitsIsLostAndTheWorkerFires) {
    TOstelClock clock;
    clock.AddClockObserver(&m_Observer);
    RecordedWaits::Answer(ETIMEDOUT);
    HoldNextThread([&clock] { return RecordedWaits::CallsOn(clock).size() == 1; });
    clock.SetTimer(5);
    clock.ResetTimer();
    EXPECT_EQ(m_Observer.timers, 1);
    HoldNextThread([&clock] { return RecordedWaits::CallsOn(clock).size() == 2; });
    clock.SetAlarm("00:00:00+1");
    clock.ResetAlarm();
    EXPECT_EQ(m_Observer.alarms, 1);
    EXPECT_EQ(RecordedWaits::Of(clock).size(), 2U) << "each for its whole time";
}

TEST_F(TOstelClockTest, AWaitThatEndsForAnyOtherReasonTellsNobody) {
    TOstelClock clock;
    clock.AddClockObserver(&m_Observer);
    RecordedWaits::Answer(EINVAL);
    clock.TimerThreadHandler(5);
    clock.SetAlarm("00:00:00+1");
    clock.ResetAlarm();
    EXPECT_EQ(m_Observer.timers, 0);
    EXPECT_EQ(m_Observer.alarms, 0);
}

TEST_F(TOstelClockTest, TimerAndAlarmRunBesideEachOtherAndEndWithTheClock) {
    {
        TOstelClock clock;
        clock.AddClockObserver(&m_Observer);
        clock.SetTimer(1000);
        clock.SetAlarm("00:00:00+2");
        ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 2));
        clock.ResetTimer();
        clock.SetTimer(1000);
        ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 3));
    }
    EXPECT_EQ(m_Observer.timers, 0);
    EXPECT_EQ(m_Observer.alarms, 0);
}

TEST_F(TOstelClockTest, BearsBeingSetAndResetBySeveralThreadsAtOnce) {
    TOstelClock clock;
    clock.AddClockObserver(&m_Observer);
    FixedTime::StopAt("UTC0", "2024-05-01 10:00:00");
    const auto set = [&clock] {
        for (int i = 0; i < 50; ++i) {
            clock.SetTimer(0);
            clock.SetAlarm("10:00:00");
            clock.ResetTimer();
            clock.ResetAlarm();
        }
    };
    std::thread other(set);
    set();
    other.join();
    EXPECT_EQ(m_Observer.timers, 100);
    EXPECT_EQ(m_Observer.alarms, 100);
}

TEST_F(TOstelClockTest, AThreadThatCannotBeStartedIsThrown) {
    TOstelClock clock;
    clock.AddClockObserver(&m_Observer);
    {
        const TRefusedThreads refused;
        EXPECT_THROW(clock.SetTimer(0), std::system_error);
        EXPECT_THROW(clock.SetAlarm("00:00:00"), std::system_error);
        EXPECT_THROW(TOstelClock(), std::system_error);
    }
    clock.SetTimer(0);
    EXPECT_TRUE(WaitUntil([this] { return m_Observer.timers == 1; }));
}

template <typename Thrown>
class TThrowingObserver final : public IOstelClockObserver {
public:
    explicit TThrowingObserver(Thrown thrown) : m_Thrown(std::move(thrown)) {}
    void OnAlarm() override { throw m_Thrown; }
    void OnTimer() override { throw m_Thrown; }

private:
    Thrown m_Thrown;
};

TEST_F(TOstelClockTest, WhatAnObserverThrowsIsLogged) {
    TThrowingObserver observer(std::runtime_error("out of paper"));
    TThrowingObserver other(42);
    TOstelClock clock;
    FixedTime::StopAt("UTC0", "2024-05-01 10:00:00");
    clock.AddClockObserver(&observer);
    clock.SetTimer(0);
    clock.SetAlarm("10:00:00");
    clock.ResetTimer();
    clock.ResetAlarm();
    EXPECT_EQ(RecordingLog::Count(2, "[TOstelClock] out of paper."), 2);
    clock.RemoveClockObserver(&observer);
    clock.AddClockObserver(&other);
    clock.SetTimer(0);
    clock.ResetTimer();
    EXPECT_EQ(RecordingLog::Count(2, "[TOstelClock] Unknown exception."), 1);
    EXPECT_EQ(RecordingLog::Texts(2).size(), 3U);
}

}  // namespace
