#include "TOstelClockTime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>

#include "FixedTime.h"

namespace {

constexpr const char* utc = "UTC0";
constexpr const char* centralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
// Its rules put the first of January, also that of 1970, into summer time.
constexpr const char* southEastAustralia = "AEST-10AEDT,M10.1.0,M4.1.0/3";

class TOstelClockTimeTest : public testing::Test {
protected:
    TOstelClockTimeTest() {
        setenv("TZ", utc, 1);
        FixedTime::GoOn();
    }
};

TOstelClockTime Time(int hours, int minutes, int seconds, int days = 0) {
    TOstelClockTime time;
    time.m_Hours = hours;
    time.m_Minutes = minutes;
    time.m_Seconds = seconds;
    time.m_Days = days;
    return time;
}

void ExpectFields(const TOstelClockTime& time, int hours, int minutes, int seconds, int days) {
    EXPECT_EQ(time.m_Hours, hours);
    EXPECT_EQ(time.m_Minutes, minutes);
    EXPECT_EQ(time.m_Seconds, seconds);
    EXPECT_EQ(time.m_Days, days);
}

TEST_F(TOstelClockTimeTest, StartsAtMidnightOfToday) {
    ExpectFields(TOstelClockTime(), 0, 0, 0, 0);
}

TEST_F(TOstelClockTimeTest, KeepsTheOrderOfItsMembersBehindTheVirtualTable) {
    static_assert(std::has_virtual_destructor_v<TOstelClockTime>);
    constexpr std::size_t word = sizeof(void*);
    static_assert(sizeof(TOstelClockTime) == word + 4 * sizeof(std::int32_t));
    const TOstelClockTime time = Time(1, 2, 3, 4);
    const void* const place = reinterpret_cast<const char*>(&time) + word;
    const auto* const members = static_cast<const std::int32_t*>(place);
    EXPECT_EQ(members, &time.m_Hours);
    EXPECT_EQ(members + 1, &time.m_Minutes);
    EXPECT_EQ(members + 2, &time.m_Seconds);
    EXPECT_EQ(members + 3, &time.m_Days);
}

TEST_F(TOstelClockTimeTest, ReadsATextWithDays) {
    TOstelClockTime time;
    time.SetTime("07:05:09+2");
    ExpectFields(time, 7, 5, 9, 2);
    EXPECT_EQ(time.GetTime(), "07:05:09+2");
    EXPECT_EQ(time.GetAbsTime(), "55:05:09");
    EXPECT_EQ(time.ToSeconds(), 198309);
}

TEST_F(TOstelClockTimeTest, KeepsTheDaysWhenTheTextHasNone) {
    TOstelClockTime time;
    time.SetTime("07:05:09+2");
    time.SetTime("08:06:10");
    ExpectFields(time, 8, 6, 10, 2);
}

TEST_F(TOstelClockTimeTest, TakesTheEmptyTextForMidnightAndKeepsTheDays) {
    TOstelClockTime time = Time(7, 5, 9, 2);
    time.SetTime("");
    ExpectFields(time, 0, 0, 0, 2);
}

struct TText {
    const char* text;
    int hours;
    int minutes;
    int seconds;
    int days;
};

void PrintTo(const TText& text, std::ostream* out) {
    *out << '"' << text.text << '"';
}

class TextsOfClockTimes : public testing::TestWithParam<TText> {
protected:
    TextsOfClockTimes() { setenv("TZ", utc, 1); }
};

TEST_P(TextsOfClockTimes, AreReadAsTheCLibraryReadsThem) {
    TOstelClockTime time = Time(1, 1, 1, 9);
    time.SetTime(GetParam().text);
    ExpectFields(time, GetParam().hours, GetParam().minutes, GetParam().seconds, GetParam().days);
}

INSTANTIATE_TEST_SUITE_P(
    All, TextsOfClockTimes,
    testing::Values(TText{"08:00:00+0", 8, 0, 0, 0}, TText{"08:00:00+", 8, 0, 0, 0},
                    TText{"08:00:00+-3", 8, 0, 0, -3}, TText{"08:00:00-3", 8, 0, 0, 9},
                    TText{"08:00:00+1+2", 8, 0, 0, 1}, TText{"08:00:00+x", 8, 0, 0, 0},
                    TText{"08:00:00 + 4", 8, 0, 0, 4}, TText{"+5", 0, 0, 0, 5},
                    TText{"8:5:9", 8, 5, 9, 9}, TText{"23:59:60", 0, 0, 0, 9},
                    TText{"12:34", 0, 0, 0, 9}, TText{"12:xx:11", 0, 0, 0, 9},
                    TText{"12:34:99", 12, 34, 9, 9}, TText{"24:00:00", 0, 0, 0, 9},
                    TText{"-1:00:00", 0, 0, 0, 9}, TText{"soon", 0, 0, 0, 9},
                    TText{"12:34:56 PM", 12, 34, 56, 9}));

TEST_F(TOstelClockTimeTest, WritesDaysThatHaveGoneByWithBothSigns) {
    EXPECT_EQ(Time(8, 0, 0, -3).GetTime(), "08:00:00+-3");
}

TEST_F(TOstelClockTimeTest, NormalizesHoursMinutesAndSecondsAndDropsTheDayThatResults) {
    TOstelClockTime time = Time(25, 61, 61, 4);
    time.Normalize();
    ExpectFields(time, 2, 2, 1, 4);
    time = Time(-1, 0, 0, 4);
    time.Normalize();
    ExpectFields(time, 23, 0, 0, 4);
    time = Time(0, 0, -1, -4);
    time.Normalize();
    ExpectFields(time, 23, 59, 59, -4);
}

TEST_F(TOstelClockTimeTest, WritesTheNormalizedTimeAndStaysAsItIs) {
    const TOstelClockTime time = Time(25, 61, 61, 1);
    EXPECT_EQ(time.GetTime(), "02:02:01+1");
    ExpectFields(time, 25, 61, 61, 1);
}

TEST_F(TOstelClockTimeTest, CountsSecondsAndAbsoluteHoursWithoutNormalizing) {
    TOstelClockTime time = Time(25, 61, 61, 1);
    EXPECT_EQ(time.ToSeconds(), 86400 + 25 * 3600 + 61 * 60 + 61);
    EXPECT_EQ(time.GetAbsTime(), "49:61:61");
    EXPECT_EQ(Time(1, 0, 0, 2).GetAbsTime(), "49:00:00");
    EXPECT_EQ(Time(-1, -2, -3).GetAbsTime(), "-1:-2:-3");
    EXPECT_EQ(Time(0, 0, -3, -1).ToSeconds(), -86403);
}

// Applications are linked with the names that these types give.
TEST_F(TOstelClockTimeTest, OnlyTheTextsAreAskedOfConstants) {
    static_assert(
        std::is_same_v<decltype(&TOstelClockTime::ToSeconds), int (TOstelClockTime::*)()>);
    static_assert(std::is_same_v<decltype(&TOstelClockTime::GetTime),
                                 std::string (TOstelClockTime::*)() const>);
    static_assert(std::is_same_v<decltype(&TOstelClockTime::GetAbsTime),
                                 std::string (TOstelClockTime::*)() const>);
}

TEST_F(TOstelClockTimeTest, CutsSecondsAndAbsoluteHoursTo32Bits) {
    EXPECT_EQ(Time(0, 0, 0, 24856).ToSeconds(), static_cast<std::int32_t>(24856LL * 86400));
    EXPECT_EQ(Time(INT_MAX, INT_MAX, INT_MAX, INT_MAX).ToSeconds(),
              static_cast<std::int32_t>(INT_MAX * (86400LL + 3600 + 60 + 1)));
    EXPECT_EQ(Time(23, 0, 0, INT_MAX).GetAbsTime(), "-1:00:00");
    EXPECT_EQ(Time(0, INT_MIN, INT_MIN, INT_MIN).GetAbsTime(), "00:-2147483648:-2147483648");
}

TEST_F(TOstelClockTimeTest, HasNoTextForATimeThatCannotBeNormalized) {
    TOstelClockTime time = Time(INT_MAX, 0, 0, 2);
    if (sizeof(std::time_t) > 4) {
        EXPECT_EQ(time.GetTime(), "07:00:00+2");
    } else {
        EXPECT_EQ(time.GetTime(), "");
        time.Normalize();
        ExpectFields(time, INT_MAX, 0, 0, 2);
    }
}

TEST_F(TOstelClockTimeTest, NowIsTheLocalTimeOfDayAndKeepsTheDays) {
    FixedTime::StopAt(centralEurope, "2024-05-01 13:45:10");
    TOstelClockTime time = Time(1, 1, 1, 6);
    EXPECT_EQ(&time.Now(), &time);
    ExpectFields(time, 13, 45, 10, 6);
    FixedTime::StopAt(centralEurope, "2024-12-01 13:45:10");
    ExpectFields(time.Now(), 13, 45, 10, 6);
    setenv("TZ", utc, 1);
    ExpectFields(time.Now(), 12, 45, 10, 6);
}

TEST_F(TOstelClockTimeTest, WritesTheCurrentTimeWithItsZone) {
    FixedTime::StopAt(centralEurope, "2024-05-01 13:45:10");
    EXPECT_EQ(TOstelClockTime::GetCurrentTimeAndDate(), "2024-05-01 13:45:10 CEST");
    setenv("TZ", utc, 1);
    EXPECT_EQ(TOstelClockTime::GetCurrentTimeAndDate(), "2024-05-01 11:45:10 UTC");
}

TEST_F(TOstelClockTimeTest, HasNoTextForACurrentTimeLongerThan127Characters) {
    // "2024-05-01 11:45:10 " takes 20 of them.
    setenv("TZ", ("<" + std::string(107, 'Z') + ">0").c_str(), 1);
    EXPECT_EQ(TOstelClockTime::GetCurrentTimeAndDate().length(), 127U);
    setenv("TZ", ("<" + std::string(108, 'Z') + ">0").c_str(), 1);
    EXPECT_EQ(TOstelClockTime::GetCurrentTimeAndDate(), "");
}

TEST_F(TOstelClockTimeTest, StaysAsItIsWhenTheLocalTimeCannotBeTold) {
    if (sizeof(std::time_t) == 4) {
        GTEST_SKIP() << "every 32-bit time has a local time";
    }
    FixedTime::StopAt(std::numeric_limits<std::time_t>::max());
    TOstelClockTime time = Time(1, 2, 3, 4);
    ExpectFields(time.Now(), 1, 2, 3, 4);
    EXPECT_EQ(TOstelClockTime::GetCurrentTimeAndDate(), "");
}

TEST_F(TOstelClockTimeTest, NormalizesInTheSummerTimeOfTheFirstOfJanuary1970) {
    setenv("TZ", southEastAustralia, 1);
    TOstelClockTime time;
    time.SetTime("08:00:00");
    ExpectFields(time, 9, 0, 0, 0);
    EXPECT_EQ(time.GetTime(), "10:00:00");
    time.Normalize();
    ExpectFields(time, 10, 0, 0, 0);
    time.SetTime("");
    ExpectFields(time, 0, 0, 0, 0);
}

TEST_F(TOstelClockTimeTest, RandomTimesFillTheRangeButForItsEnd) {
    std::set<std::string> times;
    for (long nanoseconds = 0; nanoseconds < 1000; ++nanoseconds) {
        FixedTime::StopAt(1700000000, nanoseconds);
        times.insert(TOstelClockTime::GetRandomTime("10:00:00", "10:00:10"));
    }
    EXPECT_EQ(times.size(), 10U);
    EXPECT_EQ(*times.begin(), "10:00:00");
    EXPECT_EQ(*times.rbegin(), "10:00:09");
}

TEST_F(TOstelClockTimeTest, ARandomTimeBeforeALeapSecondMayBeMidnight) {
    std::set<std::string> times;
    for (long nanoseconds = 0; nanoseconds < 1000; ++nanoseconds) {
        FixedTime::StopAt(1700000000, nanoseconds);
        times.insert(TOstelClockTime::GetRandomTime("23:59:59", "23:59:61"));
    }
    EXPECT_THAT(times, testing::ElementsAre("00:00:00", "23:59:59"));
}

TEST_F(TOstelClockTimeTest, RandomTimesFollowTheClockThroughTheMinimalStandardGenerator) {
    struct TCase {
        std::uint64_t nanoseconds;  // since the epoch
        std::uint64_t seed;
    };
    const TCase cases[] = {
        {1714571110123456789U, (1714571110123456789U & 0xFFFFFFFFU) % 2147483647U},
        {2147483647U, 1U},  // a seed of 0 stays 0 for ever, so it is made 1
        {4294967296U, 1U},  // the low 32 bits only
        {4294967296U + 77U, 77U},
    };
    for (const TCase& one : cases) {
        FixedTime::StopAt(static_cast<std::time_t>(one.nanoseconds / 1000000000U),
                          static_cast<long>(one.nanoseconds % 1000000000U));
        const auto offset = static_cast<int>(16807U * one.seed % 2147483647U % 86399U);
        EXPECT_EQ(TOstelClockTime::GetRandomTime("00:00:00", "23:59:59"),
                  Time(0, 0, offset).GetTime())
            << one.nanoseconds;
    }
}

TEST_F(TOstelClockTimeTest, ARandomTimeOfNoRangeIsItsStart) {
    EXPECT_EQ(TOstelClockTime::GetRandomTime("10:00:00", "09:00:00"), "10:00:00");
    EXPECT_EQ(TOstelClockTime::GetRandomTime("10:00:00", "10:00:00"), "10:00:00");
    EXPECT_EQ(TOstelClockTime::GetRandomTime("10:00:00", "10:00:01"), "10:00:00");
    EXPECT_EQ(TOstelClockTime::GetRandomTime("", ""), "00:00:00");
    EXPECT_EQ(TOstelClockTime::GetRandomTime("10:00:00+3", "later"), "10:00:00");
}

TEST_F(TOstelClockTimeTest, RandomSetsTheTimeOfDayAndKeepsTheDays) {
    TOstelClockTime time = Time(1, 1, 1, 5);
    EXPECT_EQ(&time.Random("10:00:00", "09:00:00"), &time);
    ExpectFields(time, 10, 0, 0, 5);
}

}  // namespace
