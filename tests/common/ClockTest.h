#ifndef CLOCK_TEST_H
#define CLOCK_TEST_H

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>

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

// In UTC, with clocks that run and waits that last, whatever the test before has made of them.
class ClockTest : public testing::Test {
protected:
    ClockTest() {
        setenv("TZ", "UTC0", 1);
        FixedTime::GoOn();
        RecordedWaits::Clear();
        RecordingLog::Clear();
    }
};

#endif
