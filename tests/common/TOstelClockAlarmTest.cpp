#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <ostream>
#include <string>

#include "ClockTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* utc = "UTC0";
constexpr const char* centralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* india = "IST-5:30";
constexpr const char* dateLine = "<-12>12";
// Its rules put the first of January, also that of 1970, into summer time.
constexpr const char* southEastAustralia = "AEST-10AEDT,M10.1.0,M4.1.0/3";

std::string TimeLine(const std::string& time) {
    return "[TOstelClock] Alarm time is '" + time + "'.";
}

std::string TimeoutLine(const std::string& timeout) {
    return "[TOstelClock] Alarm timeout is '" + timeout + "'.";
}

class TOstelClockAlarmTest : public ClockTest {
protected:
    TOstelClockAlarmTest() { m_Clock.AddClockObserver(&m_Observer); }

    TCountingObserver m_Observer;
    TOstelClock m_Clock;
};

struct TAlarm {
    const char* zone;
    const char* now;
    const char* alarm;
    const char* logged;
    const char* timeout;
    int seconds;
};

void PrintTo(const TAlarm& alarm, std::ostream* out) {
    *out << alarm.alarm << " at " << alarm.now << " in " << alarm.zone;
}

class Alarms : public TOstelClockAlarmTest, public testing::WithParamInterface<TAlarm> {};

TEST_P(Alarms, WaitForTheirTime) {
    const TAlarm& alarm = GetParam();
    FixedTime::StopAt(alarm.zone, alarm.now);
    // As if woken at once: a slow machine would see the alarm of the shortest ones.
    RecordedWaits::Answer(0);
    m_Clock.SetAlarm(alarm.alarm);
    ASSERT_TRUE(RecordedWaits::WaitForWaits(m_Clock, 1));
    EXPECT_THAT(RecordingLog::Texts(5),
                ElementsAre(TimeLine(alarm.logged), TimeoutLine(alarm.timeout)));
    EXPECT_NEAR(RecordedWaits::Of(m_Clock)[0].seconds, alarm.seconds, 0.9);
    m_Clock.ResetAlarm();
    EXPECT_EQ(m_Observer.alarms, 0);
}

constexpr int hour = 3600;

INSTANTIATE_TEST_SUITE_P(
    Today, Alarms,
    testing::Values(
        TAlarm{utc, "2024-05-01 07:00:00", "08:00:00", "08:00:00", "01:00:00", hour},
        TAlarm{utc, "2024-05-01 10:00:00", "08:00:00", "08:00:00", "22:00:00", 22 * hour},
        TAlarm{utc, "2024-05-01 08:00:01", "08:00:00", "08:00:00", "23:59:59", 24 * hour - 1},
        TAlarm{utc, "2024-05-01 08:01:00", "08:00:59", "08:00:59", "23:59:59", 24 * hour - 1},
        TAlarm{utc, "2024-05-01 07:59:58", "08:00:00", "08:00:00", "00:00:02", 2},
        TAlarm{utc, "2024-05-01 23:59:59", "00:00:00", "00:00:00", "00:00:01", 1}));

INSTANTIATE_TEST_SUITE_P(
    DaysAhead, Alarms,
    testing::Values(
        TAlarm{utc, "2024-05-01 07:00:00", "08:00:00+1", "08:00:00+1", "25:00:00", 25 * hour},
        TAlarm{utc, "2024-05-01 08:00:00", "08:00:00+1", "08:00:00+1", "24:00:00", 24 * hour},
        TAlarm{utc, "2024-05-01 10:00:00", "08:00:00+1", "08:00:00+1", "22:00:00", 22 * hour},
        TAlarm{utc, "2024-05-01 10:00:00", "08:00:00+2", "08:00:00+2", "46:00:00", 46 * hour},
        TAlarm{utc, "2024-05-01 07:00:00", "08:00:00+-3", "08:00:00+-3", "01:00:00", hour},
        TAlarm{utc, "2024-05-01 10:00:00", "08:00:00+-3", "08:00:00+-3", "22:00:00", 22 * hour},
        // The seconds until then have 32 bits, the hours in the log do not have to fit in.
        TAlarm{utc, "2024-05-01 07:00:00", "08:00:00+49711", "08:00:00+49711", "1193065:00:00",
               66704}));

INSTANTIATE_TEST_SUITE_P(
    TextsThatAreNoTime, Alarms,
    testing::Values(TAlarm{utc, "2024-05-01 10:00:00", "soon", "00:00:00", "14:00:00", 14 * hour},
                    TAlarm{utc, "2024-05-01 10:00:00", "", "00:00:00", "14:00:00", 14 * hour},
                    TAlarm{utc, "2024-05-01 10:00:00", "12:34:99", "12:34:09", "02:34:09",
                           2 * hour + 34 * 60 + 9}));

// The clock face counts: where summer time begins or ends meanwhile, the wait is off by its hour.
INSTANTIATE_TEST_SUITE_P(
    AcrossZonesAndSummerTime, Alarms,
    testing::Values(
        TAlarm{india, "2024-05-01 07:00:00", "08:15:00", "08:15:00", "01:15:00", hour + 900},
        TAlarm{dateLine, "2024-05-01 23:30:00", "00:30:00", "00:30:00", "01:00:00", hour},
        TAlarm{centralEurope, "2024-07-01 07:00:00", "08:00:00", "08:00:00", "01:00:00", hour},
        TAlarm{centralEurope, "2024-12-01 07:00:00", "08:00:00", "08:00:00", "01:00:00", hour},
        TAlarm{centralEurope, "2024-03-30 22:00:00", "06:00:00", "06:00:00", "08:00:00", 8 * hour},
        TAlarm{centralEurope, "2024-03-31 01:59:59", "03:00:00", "03:00:00", "01:00:01", hour + 1},
        TAlarm{centralEurope, "2024-10-26 22:00:00", "06:00:00", "06:00:00", "08:00:00", 8 * hour},
        // Read once, written once more, and counted twice.
        TAlarm{southEastAustralia, "2024-07-01 07:00:00", "08:00:00", "10:00:00", "04:00:00",
               4 * hour},
        TAlarm{southEastAustralia, "2024-07-01 10:00:00", "08:00:00", "10:00:00", "01:00:00",
               hour}));

TEST_F(TOstelClockAlarmTest, AnAlarmForJustThisSecondFiresAtOnceAndOnce) {
    FixedTime::StopAt(utc, "2024-05-01 10:00:00");
    m_Clock.SetAlarm("10:00:00");
    ASSERT_TRUE(WaitUntil([this] { return m_Observer.alarms == 1; }));
    m_Clock.ResetAlarm();
    EXPECT_EQ(m_Observer.alarms, 1);
    EXPECT_EQ(m_Observer.timers, 0);
    EXPECT_THAT(RecordedWaits::Of(m_Clock), IsEmpty());
    EXPECT_THAT(RecordingLog::Texts(5), ElementsAre(TimeLine("10:00:00"), TimeoutLine("00:00:00")));
}

TEST_F(TOstelClockAlarmTest, AnAlarmWhoseTimeHasComeTellsTheObserversOnce) {
    FixedTime::StopAt(utc, "2024-05-01 07:00:00");
    RecordedWaits::Answer(ETIMEDOUT);
    m_Clock.SetAlarm("08:00:00");
    ASSERT_TRUE(WaitUntil([this] { return m_Observer.alarms == 1; }));
    m_Clock.ResetAlarm();
    EXPECT_EQ(m_Observer.alarms, 1);
    EXPECT_EQ(RecordedWaits::Of(m_Clock).size(), 1U);
}

TEST_F(TOstelClockAlarmTest, AnAlarmWithoutDaysKeepsThoseOfTheAlarmBefore) {
    FixedTime::StopAt(utc, "2024-05-01 07:00:00");
    m_Clock.SetAlarm("08:00:00+2");
    ASSERT_TRUE(RecordedWaits::WaitForWaits(m_Clock, 1));
    m_Clock.SetAlarm("09:00:00");
    ASSERT_TRUE(RecordedWaits::WaitForWaits(m_Clock, 2));
    EXPECT_NEAR(RecordedWaits::Of(m_Clock)[1].seconds, 50.0 * hour, 0.9);
    m_Clock.ResetAlarm();
    EXPECT_EQ(m_Observer.alarms, 0);
    EXPECT_THAT(RecordingLog::Texts(5),
                ElementsAre(TimeLine("08:00:00+2"), TimeoutLine("49:00:00"), TimeLine("09:00:00+2"),
                            TimeoutLine("50:00:00")));
}

// 24856 days are more seconds than a signed 32-bit number holds.
TEST_F(TOstelClockAlarmTest, TheSecondsUntilAnAlarmHaveNoSign) {
    FixedTime::StopAt(utc, "2024-05-01 07:00:00");
    m_Clock.SetAlarm("08:00:00+24856");
    ASSERT_TRUE(RecordedWaits::WaitForWaits(m_Clock, 1));
    const double most = sizeof(std::time_t) > 4 ? 24856.0 * 24 * hour + hour : 2000000000.0;
    EXPECT_GT(RecordedWaits::Of(m_Clock)[0].seconds, most - 1.0);
    m_Clock.ResetAlarm();
}

TEST_F(TOstelClockAlarmTest, ResettingAnAlarmThatIsNotSetDoesNothing) {
    m_Clock.ResetAlarm();
    m_Clock.ResetAlarm();
    EXPECT_EQ(m_Observer.alarms, 0);
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

}  // namespace
