#ifndef CLOCK_TEST_H
#define CLOCK_TEST_H

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <string>

#include "FixedTime.h"
#include "RecordedWaits.h"
#include "RecordingLog.h"
#include "TOstelClock.h"
#include "WaitUntil.h"

class TCountingObserver final : public IOstelClockObserver {
public:
    void OnAlarm() override { ++alarms; }
    void OnTimer() override { ++timers; }

    std::atomic<int> alarms{0};
    std::atomic<int> timers{0};
};

// As long as it lives, no thread can be started.
class TRefusedThreads {
public:
    TRefusedThreads();
    TRefusedThreads(const TRefusedThreads&) = delete;
    TRefusedThreads& operator=(const TRefusedThreads&) = delete;
    ~TRefusedThreads();
};

// The next thread that is started does nothing until the condition holds.
void HoldNextThread(std::function<bool()> condition);

// From now on none can be made.
void RefuseFifos();
void RefuseTimers();

// The open file of this process whose name begins so.
struct TOpenFile {
    explicit TOpenFile(const std::string& beginning);

    int descriptor = -1;
    std::filesystem::path path;
};

// The next FIFO path that a clock makes up is taken; the path.
std::string TakeNextFifoPath(const std::function<void()>& makeClock);

// Waits until the one clock of the test has begun so many times to wait for a change.
bool WaitForMonitor(int times);

// The one clock's timer expires, and if `error` is not 0, reading it fails with it once. ECANCELED
// is what the system answers when its clock has been set.
void ExpireMonitorTimer(int error);

// In UTC, with clocks that run and waits that last, whatever the test before has made of them.
class ClockTest : public testing::Test {
protected:
    ClockTest();
};

#endif
