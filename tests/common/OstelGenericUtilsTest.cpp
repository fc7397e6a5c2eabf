#include "OstelGenericUtils.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <mutex>
#include <set>
#include <thread>

#include "FixedTime.h"

using namespace OstelGenericUtils;

namespace {

template <typename T>
class IntegerParsing : public testing::Test {};

using TIntegers =
    testing::Types<int, long, long long, unsigned int, unsigned long, unsigned long long>;
TYPED_TEST_SUITE(IntegerParsing, TIntegers);

TYPED_TEST(IntegerParsing, ReadsTheWholeText) {
    TypeParam value = 5;
    EXPECT_TRUE(StringToInteger("42", value));
    EXPECT_EQ(value, TypeParam{42});
}

TYPED_TEST(IntegerParsing, StoresWhatCameBeforeTheFault) {
    TypeParam value = 5;
    EXPECT_FALSE(StringToInteger("12a", value));
    EXPECT_EQ(value, TypeParam{12});
    EXPECT_FALSE(StringToInteger("x", value));
    EXPECT_EQ(value, TypeParam{0});
}

TYPED_TEST(IntegerParsing, TakesTheEmptyTextForZero) {
    TypeParam value = 5;
    EXPECT_TRUE(StringToInteger("", value));
    EXPECT_EQ(value, TypeParam{0});
}

TYPED_TEST(IntegerParsing, AcceptsLeadingBlanksAndASign) {
    TypeParam value = 5;
    EXPECT_TRUE(StringToInteger(" \t7", value));
    EXPECT_EQ(value, TypeParam{7});
    EXPECT_TRUE(StringToInteger("+7", value));
    EXPECT_EQ(value, TypeParam{7});
    EXPECT_FALSE(StringToInteger("7 ", value));
}

TYPED_TEST(IntegerParsing, AcceptsAMinusAlsoForUnsignedForms) {
    TypeParam value = 5;
    EXPECT_TRUE(StringToInteger("-1", value));
    EXPECT_EQ(value, static_cast<TypeParam>(-1));
}

TYPED_TEST(IntegerParsing, KnowsBaseTenOnly) {
    TypeParam value = 5;
    EXPECT_FALSE(StringToInteger("0x10", value));
    EXPECT_EQ(value, TypeParam{0});
    EXPECT_TRUE(StringToInteger("010", value));
    EXPECT_EQ(value, TypeParam{10});
}

TYPED_TEST(IntegerParsing, DoesNotTakeANulForTheEnd) {
    TypeParam value = 5;
    EXPECT_FALSE(StringToInteger(std::string("12\0a", 4), value));
    EXPECT_EQ(value, TypeParam{12});
    EXPECT_FALSE(StringToInteger(std::string("\0", 1), value));
    EXPECT_EQ(value, TypeParam{0});
}

// Kept: the parse is as wide as long on each machine, and its result is cut.
TEST(StringToInteger, CutsWhatTheParseHoldsAndTheTypeDoesNot) {
    int cut = 0;
    EXPECT_TRUE(StringToInteger("4294967297", cut));
    EXPECT_EQ(cut, sizeof(long) == 8 ? 1 : INT_MAX);
    unsigned int cutUnsigned = 0;
    EXPECT_TRUE(StringToInteger("4294967298", cutUnsigned));
    EXPECT_EQ(cutUnsigned, sizeof(long) == 8 ? 2 : UINT_MAX);
}

TEST(StringToInteger, ClampsAsStrtolDoesAndCountsItAsRead) {
    long value = 0;
    EXPECT_TRUE(StringToInteger("99999999999999999999", value));
    EXPECT_EQ(value, LONG_MAX);
    long long wide = 0;
    EXPECT_TRUE(StringToInteger("-99999999999999999999", wide));
    EXPECT_EQ(wide, LLONG_MIN);
    unsigned long long widest = 0;
    EXPECT_TRUE(StringToInteger("99999999999999999999", widest));
    EXPECT_EQ(widest, ULLONG_MAX);
    int cut = 0;
    EXPECT_TRUE(StringToInteger("99999999999999999999", cut));
    EXPECT_EQ(cut, static_cast<int>(LONG_MAX));
}

TEST(StringToBoolean, KnowsFourWords) {
    const struct {
        const char* text;
        bool value;
    } cases[] = {{"true", true},   {"TRUE", true},   {"True", true},   {"1", true},
                 {"false", false}, {"FALSE", false}, {"fAlSe", false}, {"0", false}};
    for (const auto& one : cases) {
        bool value = !one.value;
        EXPECT_TRUE(StringToBoolean(one.text, value)) << one.text;
        EXPECT_EQ(value, one.value) << one.text;
    }
}

TEST(StringToBoolean, LeavesTheValueAloneForAnythingElse) {
    for (const std::string& text :
         {std::string("yes"), std::string(), std::string("2"), std::string(" true"),
          std::string("true "), std::string("01"), std::string("on"), std::string("true\0x", 6),
          std::string("false\0", 6), std::string("1\0", 2)}) {
        bool value = true;
        EXPECT_FALSE(StringToBoolean(text, value)) << text;
        EXPECT_TRUE(value);
        value = false;
        EXPECT_FALSE(StringToBoolean(text, value)) << text;
        EXPECT_FALSE(value);
    }
}

TEST(Case, ConvertsByteByByte) {
    std::string text = "aBc-1\xC3\xA4";
    ToUpperCase(text);
    EXPECT_EQ(text, "ABC-1\xC3\xA4");
    ToLowerCase(text);
    EXPECT_EQ(text, "abc-1\xC3\xA4");
}

TEST(ReplaceSubstring, ReplacesEveryOccurrence) {
    std::string text = "a-b-c";
    ReplaceSubstring(text, "-", "+");
    EXPECT_EQ(text, "a+b+c");
    ReplaceSubstring(text, "x", "y");
    EXPECT_EQ(text, "a+b+c");
}

TEST(ReplaceSubstring, SkipsByTheLengthOfWhatItReplaced) {
    // After "xx" became "" the next two characters are not looked at, so their "xx" stays.
    std::string text = "xxxxxx";
    ReplaceSubstring(text, "xx", "");
    EXPECT_EQ(text, "xx");
    // A longer replacement is searched from its middle on.
    std::string longer = "ab";
    ReplaceSubstring(longer, "ab", "cdef");
    EXPECT_EQ(longer, "cdef");
    std::string inner = "abz";
    ReplaceSubstring(inner, "ab", "--a");
    EXPECT_EQ(inner, "--az");
    std::string again = "abb";
    ReplaceSubstring(again, "ab", "--a");
    EXPECT_EQ(again, "----a");
    std::string overlap = "abb";
    ReplaceSubstring(overlap, "ab", "cda");
    EXPECT_EQ(overlap, "cdcda");
}

TEST(Split, KeepsEmptyPiecesButNoEmptyLast) {
    using TPieces = std::vector<std::string>;
    EXPECT_EQ(Split("a,,b,", ','), (TPieces{"a", "", "b"}));
    EXPECT_EQ(Split("", ','), TPieces{});
    EXPECT_EQ(Split(",", ','), TPieces{""});
    EXPECT_EQ(Split(",a", ','), (TPieces{"", "a"}));
    EXPECT_EQ(Split("abc", ','), TPieces{"abc"});
}

TEST(StringToSequence, AppendsWithoutClearing) {
    std::vector<std::string> out = {"first"};
    StringToSequence("a,b", out, ",");
    EXPECT_EQ(out, (std::vector<std::string>{"first", "a", "b"}));
}

TEST(StringToSequence, GoesOnOneCharacterBehindTheMatch) {
    std::vector<std::string> out;
    StringToSequence("a::b", out, "::");
    EXPECT_EQ(out, (std::vector<std::string>{"a", ":b"}));
}

TEST(StringToSequence, AppendsEmptyTextsForEmptyInputAndTrailingDelimiter) {
    std::vector<std::string> out;
    StringToSequence("", out, ",");
    EXPECT_EQ(out, std::vector<std::string>{""});
    out.clear();
    StringToSequence("a,", out, ",");
    EXPECT_EQ(out, (std::vector<std::string>{"a", ""}));
}

TEST(StringToSequence, FindsAnEmptyDelimiterBehindEachCharacter) {
    std::vector<std::string> out;
    StringToSequence("ab", out, "");
    EXPECT_EQ(out, (std::vector<std::string>{"", "", "", ""}));
}

TEST(Trim, TakesItsCharactersFromBothEnds) {
    std::string text = "--a-b--";
    LTrim(text, "-");
    EXPECT_EQ(text, "a-b--");
    RTrim(text, "-");
    EXPECT_EQ(text, "a-b");
    text = "xyaxy";
    Trim(text, "yx");
    EXPECT_EQ(text, "a");
}

TEST(Trim, TakesBlanksWhenNotTold) {
    std::string text = " \t\r\na b\n\r\t ";
    Trim(text);
    EXPECT_EQ(text, "a b");
}

TEST(Trim, EmptiesATextOfTrimmedCharacters) {
    for (auto* trim : {&LTrim, &RTrim, &Trim}) {
        std::string text = "   ";
        trim(text, " ");
        EXPECT_EQ(text, "");
    }
}

TEST(DemangleTypeName, NamesTypesAndLeavesTheRest) {
    EXPECT_EQ(DemangleTypeName(typeid(std::vector<int>*).name()),
              "std::vector<int, std::allocator<int> >*");
    EXPECT_EQ(DemangleTypeName("not a type name"), "not a type name");
    EXPECT_EQ(DemangleTypeName(nullptr), "");
}

TEST(GetRandomAlphaNumString, HasTheLengthAndTheAlphabet) {
    EXPECT_EQ(GetRandomAlphaNumString(0), "");
    const char* const alphabet = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    const std::string name = GetRandomAlphaNumString(16);
    EXPECT_EQ(name.size(), 16U);
    EXPECT_EQ(name.find_first_not_of(alphabet), std::string::npos);
    const std::string text = GetRandomAlphaNumString(20000);
    EXPECT_EQ(text.find_first_not_of(alphabet), std::string::npos);
    EXPECT_EQ(std::set<char>(text.begin(), text.end()).size(), 62U);
}

TEST(GetRandomAlphaNumString, DiffersFromCallToCallAndFromThreadToThread) {
    const std::string here = GetRandomAlphaNumString(32);
    std::string there;
    std::thread([&] { there = GetRandomAlphaNumString(32); }).join();
    EXPECT_NE(here, there);
    EXPECT_NE(here, GetRandomAlphaNumString(32));
}

// ThreadSanitizer sees a generator that threads share.
TEST(GetRandomAlphaNumString, IsMadeByManyThreadsAtOnce) {
    std::set<std::string> texts;
    std::mutex mutex;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                const std::string text = GetRandomAlphaNumString(32);
                const std::lock_guard<std::mutex> lock(mutex);
                texts.insert(text);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(texts.size(), 800U);
}

TEST(GetTimestamp, IsTheWallClockInWholeMilliseconds) {
    timespec before{};
    clock_gettime(CLOCK_REALTIME, &before);
    const double stamp = GetTimestamp();
    timespec after{};
    clock_gettime(CLOCK_REALTIME, &after);
    const long milliseconds = before.tv_nsec / 1000000;
    // Half a millisecond for registers that are wider than a double.
    EXPECT_GT(stamp + 0.0005,
              static_cast<double>(before.tv_sec) + static_cast<double>(milliseconds) / 1000.0);
    EXPECT_LT(stamp, static_cast<double>(after.tv_sec) + 1.0);
    EXPECT_NEAR(stamp * 1000.0, std::round(stamp * 1000.0), 0.001);
}

TEST(GetTimestamp, CutsWhatIsLessThanAMillisecond) {
    FixedTime::StopAt(1700000000, 1999999);
    EXPECT_EQ(GetTimestamp(), 1700000000.001);
    FixedTime::StopAt(1700000000, 999999999);
    EXPECT_EQ(GetTimestamp(), 1700000000.999);
    FixedTime::GoOn();
}

TEST(TimeToLocalTimeString, FormatsInTheLocalZone) {
    setenv("TZ", "UTC0", 1);
    tzset();
    EXPECT_EQ(TimeToLocalTimeString(0), "Thu, 01 Jan 1970 00:00:00 UTC");
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    EXPECT_EQ(TimeToLocalTimeString(1750000000), "Sun, 15 Jun 2025 17:06:40 CEST");
}

TEST(TimeToLocalTimeString, IsEmptyWhenItDoesNotFit) {
    setenv("TZ", "<ABCDEFGHIJKLMNOPQRSTUVWXYZ>0", 1);
    tzset();
    EXPECT_EQ(TimeToLocalTimeString(0), "");
    // 26 characters before the zone's name, and 49 altogether.
    setenv("TZ", "<ABCDEFGHIJKLMNOPQRSTUVW>0", 1);
    tzset();
    EXPECT_EQ(TimeToLocalTimeString(0).size(), 49U);
}

TEST(TimeToLocalTimeString, IsEmptyForATimeThatNoCalendarHolds) {
    const std::string text = TimeToLocalTimeString(std::numeric_limits<long>::max());
    // Where long has 32 bits, each of its values is a date.
    EXPECT_EQ(text.empty(), sizeof(long) == 8) << text;
}

TEST(GetSystemUpTime, CountsSecondsSinceTheStart) {
    timespec boot{};
    clock_gettime(CLOCK_BOOTTIME, &boot);
    EXPECT_NEAR(static_cast<double>(GetSystemUpTime()), static_cast<double>(boot.tv_sec), 2.0);
}

TEST(PThreadCondInit, WaitsOnTheMonotonicClock) {
    pthread_cond_t condition;
    ASSERT_EQ(PThreadCondInit(condition), 0);
    pthread_mutex_t mutex{};
    pthread_mutex_init(&mutex, nullptr);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    // By the wall clock this instant is decades ago; by the monotonic one it is ahead.
    timespec until = now;
    until.tv_nsec += 50000000;
    if (until.tv_nsec >= 1000000000) {
        until.tv_nsec -= 1000000000;
        ++until.tv_sec;
    }
    pthread_mutex_lock(&mutex);
    EXPECT_EQ(pthread_cond_timedwait(&condition, &mutex, &until), ETIMEDOUT);
    pthread_mutex_unlock(&mutex);
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_TRUE(after.tv_sec > until.tv_sec ||
                (after.tv_sec == until.tv_sec && after.tv_nsec >= until.tv_nsec));
    pthread_cond_destroy(&condition);
}

TEST(RunCmd, ReturnsTheOutputWithoutTrailingLineFeeds) {
    EXPECT_EQ(RunCmd("printf 'x\\n\\n'"), "x");
    EXPECT_EQ(RunCmd("printf 'a\\nb\\r\\n'"), "a\nb\r");
    EXPECT_EQ(RunCmd("true"), "");
    EXPECT_EQ(RunCmd("printf '\\n\\n'"), "");
}

TEST(RunCmd, ReadsMoreThanOneChunk) {
    EXPECT_EQ(RunCmd("printf 'y%.0s' $(seq 1000)"), std::string(1000, 'y'));
}

TEST(RunCmd, IsEmptyWhenItCannotMakeAPipe) {
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {3, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(RunCmd("printf x"), "");
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(RunCmd("printf x"), "x");
}

TEST(RunCmd, RunsNothingOfACommandWithANul) {
    EXPECT_EQ(RunCmd(std::string("echo a\0b", 8)), "");
}

TEST(RunCmd, ReturnsTheOutputOfACommandThatFailsToo) {
    EXPECT_EQ(RunCmd("printf x; exit 3"), "x");
    EXPECT_EQ(RunCmd("printf x; kill -9 $$"), "x");
}

TEST(RunCmd, IsEmptyForAnUnknownCommand) {
    EXPECT_EQ(RunCmd("/nonexistent/program 2>/dev/null"), "");
}

}  // namespace
