// What a derived clock does about its timer instead of telling the observers.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <utility>

#include "ClockTest.h"
#include "TOstelClock.h"

namespace {

class TOstelClockCallbackTest : public ClockTest {
protected:
    TCountingObserver m_Observer;
};

class TDerivedClock : public TOstelClock {
public:
    using TOstelClock::InstallTimerCallback;
};

class TCountingCallback final : public TOstelClock::ITimerCallback {
public:
    explicit TCountingCallback(std::atomic<int>& calls) : m_Calls(calls) {}
    void OnTimer() override { ++m_Calls; }

private:
    std::atomic<int>& m_Calls;
};

TEST_F(TOstelClockCallbackTest, ACallbackIsCalledInsteadOfTheObservers) {
    std::atomic<int> calls{0};
    TDerivedClock clock;
    clock.AddClockObserver(&m_Observer);
    clock.InstallTimerCallback(std::make_unique<TCountingCallback>(calls), nullptr);
    clock.TimerThreadHandler(0);
    clock.TimerThreadHandler(0);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(m_Observer.timers, 0);
    clock.NotifyTimerObservers();
    EXPECT_EQ(m_Observer.timers, 1) << "the callback is the worker's alone";
}

TEST_F(TOstelClockCallbackTest, ACallbackThatIsNoneKeepsTheTimerToItself) {
    TDerivedClock clock;
    clock.AddClockObserver(&m_Observer);
    clock.InstallTimerCallback(nullptr, nullptr);
    clock.TimerThreadHandler(0);
    EXPECT_EQ(m_Observer.timers, 0);
}

TEST_F(TOstelClockCallbackTest, EachResetTakesTheCallbackAway) {
    std::atomic<int> calls{0};
    TDerivedClock clock;
    clock.AddClockObserver(&m_Observer);
    clock.InstallTimerCallback(std::make_unique<TCountingCallback>(calls), nullptr);
    clock.ResetTimer();
    clock.TimerThreadHandler(0);
    EXPECT_EQ(m_Observer.timers, 1);
    clock.InstallTimerCallback(std::make_unique<TCountingCallback>(calls), nullptr);
    clock.SetTimer(0);
    EXPECT_TRUE(WaitUntil([this] { return m_Observer.timers == 2; }));
    EXPECT_EQ(calls, 0);
}

TEST_F(TOstelClockCallbackTest, ACallbackCanBeInstalledBesideARunningTimer) {
    std::atomic<int> calls{0};
    TDerivedClock clock;
    clock.AddClockObserver(&m_Observer);
    for (int i = 0; i < 50; ++i) {
        clock.SetTimer(0);
        clock.InstallTimerCallback(std::make_unique<TCountingCallback>(calls), nullptr);
    }
    clock.ResetTimer();
    EXPECT_EQ(calls + m_Observer.timers, 50) << "whoever came first, nobody is told twice";
}

TEST_F(TOstelClockCallbackTest, WhatACallbackNeedsIsKeptUntilTheClockIsDestroyed) {
    std::atomic<int> calls{0};
    std::weak_ptr<int> kept;
    {
        TDerivedClock clock;
        auto needed = std::make_shared<int>(42);
        kept = needed;
        clock.InstallTimerCallback(std::make_unique<TCountingCallback>(calls), std::move(needed));
        clock.ResetTimer();
        EXPECT_FALSE(kept.expired());
    }
    EXPECT_TRUE(kept.expired());
}

// Stays in its call until it may leave; then it looks whether what it needs is still there.
class TLingeringCallback final : public TOstelClock::ITimerCallback {
public:
    struct TSeen {
        std::atomic<bool> isCalled{false};
        std::promise<void> mayLeave;
        bool isStillThere = false;
    };

    TLingeringCallback(TSeen& seen, std::weak_ptr<int> needed)
        : m_Seen(seen), m_Needed(std::move(needed)) {}

    void OnTimer() override {
        m_Seen.isCalled = true;
        m_Seen.mayLeave.get_future().wait();
        m_Seen.isStillThere = !m_Needed.expired();
    }

private:
    TSeen& m_Seen;
    std::weak_ptr<int> m_Needed;
};

TEST_F(TOstelClockCallbackTest, WhatARunningCallbackNeedsOutlivesTheInstallationOfAnother) {
    TLingeringCallback::TSeen seen;
    TDerivedClock clock;
    auto needed = std::make_shared<int>(42);
    auto running = std::make_unique<TLingeringCallback>(seen, needed);
    clock.InstallTimerCallback(std::move(running), std::move(needed));
    std::thread worker([&clock] { clock.TimerThreadHandler(0); });
    EXPECT_TRUE(WaitUntil([&seen] { return seen.isCalled.load(); }));
    std::atomic<int> calls{0};
    clock.InstallTimerCallback(std::make_unique<TCountingCallback>(calls), nullptr);
    seen.mayLeave.set_value();
    worker.join();
    EXPECT_TRUE(seen.isStillThere);
}

// Is told no more when it ends.
class TLeavingCallback final : public TOstelClock::ITimerCallback {
public:
    TLeavingCallback(TOstelClock& clock, IOstelClockObserver& observer)
        : m_Clock(clock), m_Observer(observer) {}
    TLeavingCallback(const TLeavingCallback&) = delete;
    TLeavingCallback& operator=(const TLeavingCallback&) = delete;
    ~TLeavingCallback() override { m_Clock.RemoveClockObserver(&m_Observer); }
    void OnTimer() override {}

private:
    TOstelClock& m_Clock;
    IOstelClockObserver& m_Observer;
};

TEST_F(TOstelClockCallbackTest, TheEndOfACallbackOrOfWhatItNeedsCanUseTheClock) {
    TDerivedClock clock;
    const auto installCallback = [&] {
        clock.AddClockObserver(&m_Observer);
        clock.InstallTimerCallback(std::make_unique<TLeavingCallback>(clock, m_Observer), nullptr);
    };
    const auto isTold = [&] {
        const int before = m_Observer.timers;
        clock.NotifyTimerObservers();
        return m_Observer.timers != before;
    };
    installCallback();
    EXPECT_TRUE(isTold());
    clock.ResetTimer();
    EXPECT_FALSE(isTold());
    installCallback();
    clock.SetTimer(1000);
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 1));
    EXPECT_FALSE(isTold());
    installCallback();
    clock.InstallTimerCallback(nullptr, nullptr);
    EXPECT_FALSE(isTold());
    clock.AddClockObserver(&m_Observer);
    clock.InstallTimerCallback(nullptr, std::make_shared<TLeavingCallback>(clock, m_Observer));
    clock.ResetTimer();
    EXPECT_TRUE(isTold());
    clock.InstallTimerCallback(nullptr, nullptr);
    EXPECT_FALSE(isTold());
}

}  // namespace
