// The clock's watch over the system's clock.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>

#include "ClockTest.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr const char* utc = "UTC0";
constexpr const char* isStopped = "[TOstelClock] The system time monitor is stopped.";
constexpr const char* hasChanged = "[TOstelClock] The system clock has been changed!";

class TCountingSystemTimeObserver final : public IOstelSystemTimeObserver {
public:
    void OnSystemTimeChanged() override { ++changes; }

    std::atomic<int> changes{0};
};

class TOstelClockMonitorTest : public ClockTest {
protected:
    bool WaitForChanges(int count) {
        return WaitUntil([this, count] { return m_SystemTimeObserver.changes == count; });
    }

    TCountingObserver m_Observer;
    TCountingSystemTimeObserver m_SystemTimeObserver;
};

TOpenFile Fifo() {
    return TOpenFile("/tmp/ostel_clock_");
}

TOpenFile Timer() {
    return TOpenFile("anon_inode:[timerfd]");
}

// As the system itself shows it.
std::string TimerInfo() {
    std::ifstream file("/proc/self/fdinfo/" + std::to_string(Timer().descriptor));
    return {std::istreambuf_iterator<char>(file), {}};
}

bool IsThere(const std::filesystem::path& path) {
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

TEST_F(TOstelClockMonitorTest, HasAFifoForItsOwnerAloneAsLongAsTheClockLives) {
    std::filesystem::path path;
    {
        const TOstelClock clock;
        const TOpenFile fifo = Fifo();
        path = fifo.path;
        EXPECT_TRUE(std::regex_match(path.string(), std::regex("/tmp/ostel_clock_[0-9A-Za-z]{8}")))
            << path;
        struct stat status {};
        ASSERT_EQ(lstat(path.c_str(), &status), 0);
        EXPECT_TRUE(S_ISFIFO(status.st_mode));
        EXPECT_EQ(status.st_mode & 07777U, 0700U);
        EXPECT_EQ(fcntl(fifo.descriptor, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR);
        EXPECT_EQ(fcntl(fifo.descriptor, F_GETFD), 0);
    }
    EXPECT_FALSE(path.empty());
    EXPECT_FALSE(IsThere(path));
    EXPECT_EQ(Fifo().descriptor, -1);
    EXPECT_EQ(Timer().descriptor, -1);
}

TEST_F(TOstelClockMonitorTest, IsWokenByTheFifoWhenTheClockIsDestroyed) {
    {
        const TOstelClock clock;
        ASSERT_TRUE(WaitForMonitor(1));
    }
    EXPECT_THAT(RecordingLog::Texts(5), ElementsAre(isStopped));
    EXPECT_EQ(RecordingLog::Lines().size(), 1U);
}

TEST_F(TOstelClockMonitorTest, EachClockHasItsOwnFifo) {
    const TOstelClock clock;
    const TOpenFile first = Fifo();
    auto other = std::make_unique<TOstelClock>();
    const TOpenFile second = Fifo();
    EXPECT_NE(first.path, second.path);
    other.reset();
    EXPECT_TRUE(IsThere(first.path));
    EXPECT_FALSE(IsThere(second.path));
}

// Cancelled when its clock is set, without an interval.
TEST_F(TOstelClockMonitorTest, ItsTimerEndsWith32BitTimeUnlessItIsCancelled) {
    const TOstelClock clock;
    const TOpenFile timer = Timer();
    ASSERT_GE(timer.descriptor, 0);
    EXPECT_EQ(fcntl(timer.descriptor, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(timer.descriptor, F_GETFD), 0);
    const std::string info = TimerInfo();
    EXPECT_THAT(info, HasSubstr("clockid: 0\n"));
    EXPECT_THAT(info, HasSubstr("settime flags: 03\n"));
    EXPECT_THAT(info, HasSubstr("it_interval: (0, 0)\n"));
    std::smatch left;
    ASSERT_TRUE(std::regex_search(info, left, std::regex("it_value: \\(([0-9]+),"))) << info;
    const std::time_t end = std::time(nullptr) + static_cast<std::time_t>(std::stol(left[1]));
    EXPECT_NEAR(static_cast<double>(end), 2147483647.0, 1.5);
}

TEST_F(TOstelClockMonitorTest, LeavesItsTimerAsItIsAfterAChange) {
    const TOstelClock clock;
    EXPECT_THAT(TimerInfo(), HasSubstr("settime flags: 03\n"));
    ExpireMonitorTimer(ECANCELED);
    ASSERT_TRUE(RecordingLog::WaitFor(4, hasChanged));
    ASSERT_TRUE(WaitForMonitor(2));
    EXPECT_THAT(TimerInfo(), HasSubstr("settime flags: 00\n")) << "as the expiry was set here";
}

// 0 when the system's clock could be set, to its own value.
int SetSystemClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return clock_settime(CLOCK_REALTIME, &now) == 0 ? 0 : errno;
}

TEST_F(TOstelClockMonitorTest, TellsEachTimeTheSystemsClockIsSet) {
    TOstelClock clock;
    clock.AddSystemTimeObserver(&m_SystemTimeObserver);
    clock.AddClockObserver(&m_Observer);
    clock.SetAlarm("00:00:00+1");
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 1));
    const int error = SetSystemClock();
    if (error == EPERM) {
        clock.ResetAlarm();
        GTEST_SKIP() << "the system's clock cannot be set here: " << std::strerror(error);
    }
    ASSERT_EQ(error, 0);
    ASSERT_TRUE(WaitForChanges(1));
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 2));
    ASSERT_EQ(SetSystemClock(), 0);
    ASSERT_TRUE(WaitForChanges(2));
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 3));
    clock.ResetAlarm();
    EXPECT_EQ(m_Observer.alarms, 0);
    EXPECT_EQ(RecordingLog::Count(4, hasChanged), 2);
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_F(TOstelClockMonitorTest, AChangeSetsThePendingAlarmAnew) {
    TOstelClock clock;
    clock.AddSystemTimeObserver(&m_SystemTimeObserver);
    clock.AddClockObserver(&m_Observer);
    FixedTime::StopAt(utc, "2024-05-01 07:00:00");
    clock.SetAlarm("08:00:00+1");
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 1));
    FixedTime::StopAt(utc, "2024-05-01 07:30:00");
    ExpireMonitorTimer(ECANCELED);
    ASSERT_TRUE(WaitForChanges(1));
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 2));
    FixedTime::StopAt(utc, "2024-05-02 07:30:00");
    ExpireMonitorTimer(ECANCELED);
    ASSERT_TRUE(WaitForChanges(2));
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 3));
    clock.ResetAlarm();
    const auto waits = RecordedWaits::Of(clock);
    EXPECT_NEAR(waits[0].seconds, 25 * 3600.0, 0.9);
    EXPECT_NEAR(waits[1].seconds, 24 * 3600.0 + 1800, 0.9);
    EXPECT_NEAR(waits[2].seconds, 24 * 3600.0 + 1800, 0.9) << "its days count from the change";
    EXPECT_EQ(m_Observer.alarms, 0);
    EXPECT_THAT(RecordingLog::Texts(4), ElementsAre(hasChanged, hasChanged));
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_F(TOstelClockMonitorTest, AChangeMovesTheAlarmIntoTheZoneOfThatTime) {
    TOstelClock clock;
    clock.AddSystemTimeObserver(&m_SystemTimeObserver);
    FixedTime::StopAt(utc, "2024-05-01 07:00:00");
    clock.SetAlarm("12:00:00");
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 1));
    FixedTime::StopAt("CET-1CEST,M3.5.0,M10.5.0/3", "2024-05-01 09:00:00");
    ExpireMonitorTimer(ECANCELED);
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 2));
    clock.ResetAlarm();
    EXPECT_NEAR(RecordedWaits::Of(clock)[1].seconds, 3 * 3600.0, 0.9);
}

TEST_F(TOstelClockMonitorTest, AnAlarmThatHasFiredFiresAgainAtAChangeUnlessItIsReset) {
    TOstelClock clock;
    clock.AddSystemTimeObserver(&m_SystemTimeObserver);
    clock.AddClockObserver(&m_Observer);
    FixedTime::StopAt(utc, "2024-05-01 10:00:00");
    clock.SetAlarm("10:00:00");
    ASSERT_TRUE(WaitUntil([this] { return m_Observer.alarms == 1; }));
    ExpireMonitorTimer(ECANCELED);
    ASSERT_TRUE(WaitForChanges(1));
    ASSERT_TRUE(WaitUntil([this] { return m_Observer.alarms == 2; }));
    clock.ResetAlarm();
    ExpireMonitorTimer(ECANCELED);
    ASSERT_TRUE(WaitForChanges(2));
    clock.ResetAlarm();
    EXPECT_EQ(m_Observer.alarms, 2);
}

TEST_F(TOstelClockMonitorTest, AChangeLeavesTheTimerAlone) {
    TOstelClock clock;
    clock.AddSystemTimeObserver(&m_SystemTimeObserver);
    clock.AddClockObserver(&m_Observer);
    clock.SetTimer(100);
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 1));
    ExpireMonitorTimer(ECANCELED);
    ASSERT_TRUE(WaitForChanges(1));
    clock.ResetTimer();
    EXPECT_EQ(m_Observer.timers, 0);
    EXPECT_EQ(RecordedWaits::Of(clock).size(), 1U);
}

class TWaitingObserver final : public IOstelSystemTimeObserver {
public:
    explicit TWaitingObserver(const TOstelClock& clock) : m_Clock(clock) {}
    void OnSystemTimeChanged() override {
        wasSetAnew = RecordedWaits::WaitForWaits(m_Clock, 2);
        isTold = true;
    }

    std::atomic<bool> wasSetAnew{false};
    std::atomic<bool> isTold{false};

private:
    const TOstelClock& m_Clock;
};

TEST_F(TOstelClockMonitorTest, TheAlarmIsSetAnewBeforeTheObserversAreTold) {
    TOstelClock clock;
    TWaitingObserver observer(clock);
    clock.AddSystemTimeObserver(&observer);
    clock.SetAlarm("00:00:00+1");
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 1));
    ExpireMonitorTimer(ECANCELED);
    ASSERT_TRUE(
        WaitUntil([&observer] { return observer.isTold.load(); }, std::chrono::seconds(20)));
    EXPECT_TRUE(observer.wasSetAnew);
    clock.ResetAlarm();
}

TEST_F(TOstelClockMonitorTest, TellsOfAChangeWhenTheAlarmCannotBeSetAnew) {
    TOstelClock clock;
    clock.AddSystemTimeObserver(&m_SystemTimeObserver);
    clock.AddClockObserver(&m_Observer);
    clock.SetAlarm("00:00:00+1");
    ASSERT_TRUE(RecordedWaits::WaitForWaits(clock, 1));
    {
        const TRefusedThreads refused;
        ExpireMonitorTimer(ECANCELED);
        ASSERT_TRUE(WaitForChanges(1));
    }
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre("[TOstelClock] Resource temporarily unavailable."));
    EXPECT_EQ(m_Observer.alarms, 0);
}

class TThrowingSystemTimeObserver final : public IOstelSystemTimeObserver {
public:
    void OnSystemTimeChanged() override { throw std::runtime_error("no such day"); }
};

TEST_F(TOstelClockMonitorTest, WatchesOnWhenAnObserverThrows) {
    TThrowingSystemTimeObserver observer;
    TOstelClock clock;
    clock.AddSystemTimeObserver(&observer);
    for (int i = 1; i <= 2; ++i) {
        ExpireMonitorTimer(ECANCELED);
        ASSERT_TRUE(
            WaitUntil([i] { return RecordingLog::Count(2, "[TOstelClock] no such day.") == i; }));
    }
    EXPECT_EQ(RecordingLog::Count(4, hasChanged), 2);
}

TEST_F(TOstelClockMonitorTest, ATimerThatCannotBeReadIsLoggedAndWatchedOn) {
    TOstelClock clock;
    clock.AddSystemTimeObserver(&m_SystemTimeObserver);
    ExpireMonitorTimer(EIO);
    ASSERT_TRUE(RecordingLog::WaitFor(2, "[TOstelClock] Input/output error."));
    EXPECT_EQ(m_SystemTimeObserver.changes, 0);
    ExpireMonitorTimer(ECANCELED);
    EXPECT_TRUE(WaitForChanges(1));
    EXPECT_EQ(RecordingLog::Texts(2).size(), 1U);
}

TEST_F(TOstelClockMonitorTest, ATimerThatExpiresIsNoChange) {
    TOstelClock clock;
    clock.AddSystemTimeObserver(&m_SystemTimeObserver);
    ExpireMonitorTimer(0);
    ASSERT_TRUE(WaitForMonitor(2));
    EXPECT_EQ(m_SystemTimeObserver.changes, 0);
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
    ExpireMonitorTimer(ECANCELED);
    EXPECT_TRUE(WaitForChanges(1));
}

// A process without standard input gets 0 for its first descriptor.
TEST_F(TOstelClockMonitorTest, ADescriptorThatIsZeroEndsItAndNothingIsCleanedUp) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    TOpenFile fifo("");
    TOpenFile timer("");
    {
        TOstelClock clock;
        fifo = Fifo();
        timer = Timer();
        clock.AddSystemTimeObserver(&m_SystemTimeObserver);
    }
    EXPECT_EQ(fifo.descriptor, 0);
    EXPECT_GT(timer.descriptor, 0);
    EXPECT_TRUE(IsThere(fifo.path));
    EXPECT_EQ(Fifo().descriptor, 0);
    EXPECT_EQ(Timer().descriptor, timer.descriptor);
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre(AllOf(StartsWith("[TOstelClock] "), EndsWith("."))));
    EXPECT_EQ(RecordingLog::Count(5, isStopped), 0);
    std::filesystem::remove(fifo.path);
    close(timer.descriptor);
    dup2(input, STDIN_FILENO);
    close(input);
}

TEST_F(TOstelClockMonitorTest, LooksForAnotherPathWhenItIsTaken) {
    std::unique_ptr<TOstelClock> clock;
    const std::string taken =
        TakeNextFifoPath([&clock] { clock = std::make_unique<TOstelClock>(); });
    EXPECT_THAT(taken, StartsWith("/tmp/ostel_clock_"));
    EXPECT_NE(Fifo().path, taken);
    EXPECT_TRUE(IsThere(Fifo().path));
    EXPECT_FALSE(IsThere(taken));
}

void PrintLog() {
    for (const RecordingLog::TLine& line : RecordingLog::Lines()) {
        std::fprintf(stderr, "%d %s\n", line.level, line.text.c_str());
    }
}

// Kept, as in the next ones: a clock without its watch works, but destroying it ends the process.
TEST_F(TOstelClockMonitorTest, ATimerThatCannotBeMadeIsNoticedWhenItIsArmed) {
    EXPECT_EXIT(
        {
            RefuseTimers();
            TOstelClock clock;
            std::fprintf(stderr, "%s\n", Fifo().descriptor == -1 ? "closed" : "open");
            clock.AddClockObserver(&m_Observer);
            clock.SetTimer(0);
            WaitUntil([this] { return m_Observer.timers == 1; });
            std::fprintf(stderr, "%d fired\n", m_Observer.timers.load());
            PrintLog();
        },
        testing::KilledBySignal(SIGABRT),
        "^closed\n1 fired\n2 \\[TOstelClock\\] Bad file descriptor\\.\n");
}

TEST_F(TOstelClockMonitorTest, ATimerThatIsZeroEndsItAndNothingIsCleanedUp) {
    EXPECT_EXIT(
        {
            close(STDIN_FILENO);
            RefuseFifos();
            TOstelClock clock;
            std::fprintf(stderr, "%d\n", Timer().descriptor);
            PrintLog();
        },
        testing::KilledBySignal(SIGABRT), "^0\n2 \\[TOstelClock\\] [^\n]*\\.\n");
}

TEST_F(TOstelClockMonitorTest, WithoutAFifoItWatchesButCannotBeWoken) {
    EXPECT_EXIT(
        {
            RefuseFifos();
            TOstelClock clock;
            clock.AddSystemTimeObserver(&m_SystemTimeObserver);
            ExpireMonitorTimer(ECANCELED);
            std::fprintf(stderr, "%s\n", WaitForChanges(1) ? "told" : "not told");
            PrintLog();
        },
        testing::KilledBySignal(SIGABRT),
        "^told\n4 \\[TOstelClock\\] The system clock has been changed!\n");
}

TEST_F(TOstelClockMonitorTest, ASignalOnItsThreadEndsItAndDestroyingTheClockThenTheProcess) {
    EXPECT_EXIT(
        {
            std::signal(SIGUSR1, [](int) {});
            auto clock = std::make_unique<TOstelClock>();
            const std::filesystem::path fifo = Fifo().path;
            std::fprintf(stderr, "%s\n", IsThere(fifo) ? "there" : "not there");
            sigset_t blocked;
            sigemptyset(&blocked);
            sigaddset(&blocked, SIGUSR1);
            pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
            // One that comes before it has begun to wait is without effect.
            const bool isRemoved = WaitUntil([&fifo] {
                kill(getpid(), SIGUSR1);
                return !IsThere(fifo);
            });
            std::fprintf(stderr, "%s\n", isRemoved ? "removed" : "kept");
            PrintLog();
            clock.reset();
            std::fprintf(stderr, "alive\n");
        },
        testing::KilledBySignal(SIGABRT),
        "^there\nremoved\n5 \\[TOstelClock\\] The system time monitor is stopped\\.\n");
}

}  // namespace
