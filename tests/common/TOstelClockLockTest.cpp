// What the clock's lock keeps apart, and the order in which a clock ends.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "BinaryLayout.h"
#include "ClockTest.h"

struct TClockMutex {
    friend std::size_t OffsetOf(TClockMutex);
};
template struct MemberOffset<TClockMutex, &TOstelClock::m_Mutex>;

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Stays in its first notification of the timer until it may leave.
class TLingeringObserver final : public IOstelClockObserver {
public:
    void OnAlarm() override {}
    void OnTimer() override {
        if (!isTold.exchange(true)) {
            mayLeave.get_future().wait();
        }
    }

    std::atomic<bool> isTold{false};
    std::promise<void> mayLeave;
};

class TSilentObserver final : public IOstelClockObserver, public IOstelSystemTimeObserver {
public:
    void OnAlarm() override {}
    void OnTimer() override {}
    void OnSystemTimeChanged() override {}
};

// While another thread resets the timer and waits for the notification to end.
class TOstelClockLockTest : public ClockTest {
protected:
    using TOperation = std::function<void(TOstelClock&)>;

    void SetUp() override {
        m_Clock.AddClockObserver(&m_Lingering);
        m_Clock.SetTimer(0);
        ASSERT_TRUE(WaitUntil([this] { return m_Lingering.isTold.load(); }));
        m_Reset = std::async(std::launch::async, [this] { m_Clock.ResetTimer(); });
        ASSERT_TRUE(WaitUntil([this] { return !RecordedWaits::CallsOn(m_Clock).empty(); }));
    }

    std::vector<std::future<void>> Start(const std::vector<TOperation>& operations) {
        std::vector<std::future<void>> running;
        for (const TOperation& operation : operations) {
            running.push_back(std::async(std::launch::async, operation, std::ref(m_Clock)));
        }
        return running;
    }

    // Ends the notification, and with it the reset.
    void Release() {
        m_Lingering.mayLeave.set_value();
        m_Reset.get();
    }

    TLingeringObserver m_Lingering;
    TSilentObserver m_Silent;
    TOstelClock m_Clock;
    std::future<void> m_Reset;
};

TEST_F(TOstelClockLockTest, AllThatChangesTheClockWaitsForAReset) {
    RecordedWaits::Answer(0);  // so that nobody is told of what is set here
    const auto running = Start({
        [this](TOstelClock& clock) { clock.AddClockObserver(&m_Silent); },
        [this](TOstelClock& clock) { clock.RemoveClockObserver(&m_Silent); },
        [this](TOstelClock& clock) { clock.AddSystemTimeObserver(&m_Silent); },
        [this](TOstelClock& clock) { clock.RemoveSystemTimeObserver(&m_Silent); },
        [](TOstelClock& clock) { clock.SetTimer(1); },
        [](TOstelClock& clock) { clock.ResetTimer(); },
        [](TOstelClock& clock) { clock.SetAlarm("00:00:00+1"); },
        [](TOstelClock& clock) { clock.ResetAlarm(); },
    });
    // That they wait can only be seen by giving them time to end.
    for (std::size_t i = 0; i < running.size(); ++i) {
        EXPECT_EQ(running[i].wait_for(std::chrono::milliseconds(20)), std::future_status::timeout)
            << i;
    }
    Release();
}

// Or a reset would wait for a notification that waits for the reset.
TEST_F(TOstelClockLockTest, NotificationsDoNotWaitForAReset) {
    const auto running = Start({
        [](TOstelClock& clock) { clock.NotifyTimerObservers(); },
        [](TOstelClock& clock) { clock.NotifyAlarmObservers(); },
        [](TOstelClock& clock) { clock.NotifySystemTimeObservers(); },
    });
    for (std::size_t i = 0; i < running.size(); ++i) {
        EXPECT_EQ(running[i].wait_for(std::chrono::seconds(5)), std::future_status::ready) << i;
    }
    Release();
}

using TOstelClockEndTest = ClockTest;

std::filesystem::path FifoPath() {
    return TOpenFile("/tmp/ostel_clock_").path;
}

// What is written to the FIFO while nobody reads it.
class TFifoReader {
public:
    TFifoReader() : m_Descriptor(open(FifoPath().c_str(), O_RDONLY | O_NONBLOCK)) {}
    TFifoReader(const TFifoReader&) = delete;
    TFifoReader& operator=(const TFifoReader&) = delete;
    ~TFifoReader() { close(m_Descriptor); }

    bool WaitForBytes() const {
        pollfd fifo{m_Descriptor, POLLIN, 0};
        return poll(&fifo, 1, 10000) == 1;
    }

    std::vector<std::int32_t> Numbers() const {
        std::array<std::int32_t, 16> numbers{};
        const ssize_t count = read(m_Descriptor, numbers.data(), sizeof numbers);
        EXPECT_EQ(count % 4, 0);
        return {numbers.begin(), numbers.begin() + count / 4};
    }

private:
    int m_Descriptor;
};

TEST_F(TOstelClockEndTest, WakesTheMonitorByOneNumber) {
    auto clock = std::make_unique<TOstelClock>();
    const TFifoReader fifo;
    clock.reset();
    EXPECT_THAT(fifo.Numbers(), ElementsAre(1));
}

// Lets go of the monitor when the clock's destructor has woken it.
class TLastObserver final : public IOstelSystemTimeObserver {
public:
    explicit TLastObserver(const TOstelClock& clock) : m_Clock(clock) {}

    void OnSystemTimeChanged() override {
        isTold = true;
        isWoken = m_Fifo.WaitForBytes();
        callsBefore = NamesOf(RecordedWaits::CallsOn(m_Clock));
    }

    std::atomic<bool> isTold{false};
    bool isWoken = false;
    std::vector<std::string> callsBefore{"not told"};

private:
    const TOstelClock& m_Clock;
    TFifoReader m_Fifo;
};

TEST_F(TOstelClockEndTest, StopsTheMonitorBeforeAlarmAndTimer) {
    auto clock = std::make_unique<TOstelClock>();
    TLastObserver observer(*clock);
    clock->AddSystemTimeObserver(&observer);
    clock->SetTimer(1000);
    ASSERT_TRUE(RecordedWaits::WaitForWaits(*clock, 1));
    ExpireMonitorTimer(ECANCELED);
    ASSERT_TRUE(WaitUntil([&observer] { return observer.isTold.load(); }));
    clock.reset();
    EXPECT_TRUE(observer.isWoken);
    EXPECT_THAT(observer.callsBefore, IsEmpty());
    EXPECT_THAT(RecordingLog::Texts(5), IsEmpty()) << "it knew before it looked at the FIFO again";
}

class TLingeringTimeObserver final : public IOstelSystemTimeObserver {
public:
    void OnSystemTimeChanged() override {
        isTold = true;
        mayLeave.get_future().wait();
    }

    std::atomic<bool> isTold{false};
    std::promise<void> mayLeave;
};

std::mutex& MutexOf(TOstelClock& clock) {
    void* const place = reinterpret_cast<char*>(&clock) + OffsetOf(TClockMutex());
    return *static_cast<std::mutex*>(place);
}

// It would give its FIFO back, and a clock whose monitor cannot be woken ends the process.
TEST_F(TOstelClockEndTest, TheMonitorDoesNotEndBeforeItCanBeWoken) {
    auto clock = std::make_unique<TOstelClock>();
    TLingeringTimeObserver observer;
    clock->AddSystemTimeObserver(&observer);
    ExpireMonitorTimer(ECANCELED);
    ASSERT_TRUE(WaitUntil([&observer] { return observer.isTold.load(); }));
    std::unique_lock<std::mutex> lock(MutexOf(*clock));
    const auto end = std::async(std::launch::async, [&clock] { clock.reset(); });
    // That it waits for the lock can only be seen by giving it time to end.
    EXPECT_EQ(end.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    observer.mayLeave.set_value();
    EXPECT_TRUE(WaitForMonitor(2)) << "watches on";
    lock.unlock();
    end.wait();
    EXPECT_THAT(RecordingLog::Texts(5),
                ElementsAre("[TOstelClock] The system time monitor is stopped."));
}

TEST_F(TOstelClockEndTest, ResetsTheAlarmBeforeTheTimer) {
    alignas(TOstelClock) std::array<std::byte, sizeof(TOstelClock)> place{};
    auto* const clock = new (place.data()) TOstelClock;
    clock->SetTimer(1000);
    clock->SetAlarm("00:00:00+2");
    ASSERT_TRUE(RecordedWaits::WaitForWaits(*clock, 2));
    clock->~TOstelClock();
    const auto calls = RecordedWaits::CallsOn(place);
    EXPECT_THAT(NamesOf(calls), ElementsAre("signal", "signal", "broadcast", "destroy mutex",
                                            "broadcast", "destroy mutex"));
    EXPECT_LT(calls[0].offset, calls[1].offset) << "the alarm's condition stands first";
}

}  // namespace
