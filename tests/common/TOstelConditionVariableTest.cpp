#include "TOstelConditionVariable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <future>
#include <limits>
#include <new>
#include <type_traits>

#include "BinaryLayout.h"
#include "FixedTime.h"
#include "RecordedWaits.h"
#include "WaitUntil.h"

using testing::ElementsAre;
using testing::IsEmpty;

struct TMutex {
    friend std::size_t OffsetOf(TMutex);
};
struct TCondition {
    friend std::size_t OffsetOf(TCondition);
};

template struct MemberOffset<TMutex, &TOstelConditionVariable::m_Mutex>;
template struct MemberOffset<TCondition, &TOstelConditionVariable::m_Condition>;

namespace {

constexpr auto lastSecond = std::numeric_limits<std::time_t>::max();
constexpr bool isWide = sizeof(std::time_t) > 4;
constexpr std::time_t theEnd =
    static_cast<std::time_t>(isWide ? 9000000000000000100LL : lastSecond - 1);

class TOstelConditionVariableTest : public testing::Test {
protected:
    TOstelConditionVariableTest() {
        RecordedWaits::Clear();
        FixedTime::GoOn();
    }
};

TEST_F(TOstelConditionVariableTest, KeepsTheOrderOfItsMembersBehindTheVirtualTable) {
    static_assert(std::has_virtual_destructor_v<TOstelConditionVariable>);
    EXPECT_EQ(OffsetOf(TMutex()), sizeof(void*));
    EXPECT_EQ(OffsetOf(TCondition()),
              BinaryLayout::Behind<pthread_cond_t>(sizeof(void*) + sizeof(pthread_mutex_t)));
}

TEST_F(TOstelConditionVariableTest, AWaitOfZeroIsOverWithoutWaiting) {
    TOstelConditionVariable variable;
    EXPECT_TRUE(variable.WaitFor(0.0));
    EXPECT_TRUE(variable.WaitFor(-0.0));
    EXPECT_TRUE(RecordedWaits::Of(variable).empty());
}

// A condition on the wrong clock would take the deadline for one of long ago.
TEST_F(TOstelConditionVariableTest, WaitsForTheWholeTimeOnTheMonotonicClock) {
    TOstelConditionVariable variable;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(variable.WaitFor(0.05));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST_F(TOstelConditionVariableTest, ANotificationEndsTheWaitAsWoken) {
    TOstelConditionVariable variable;
    auto isOver = std::async(std::launch::async, [&variable] { return variable.WaitFor(100.0); });
    ASSERT_TRUE(RecordedWaits::WaitForWaits(variable, 1));
    variable.Notify();
    EXPECT_FALSE(isOver.get());
}

TEST_F(TOstelConditionVariableTest, ANotificationWakesOneWaiter) {
    TOstelConditionVariable variable;
    std::atomic<int> woken{0};
    const auto wait = [&variable, &woken] {
        const bool isOver = variable.WaitFor(100.0);
        ++woken;
        return isOver;
    };
    auto first = std::async(std::launch::async, wait);
    auto second = std::async(std::launch::async, wait);
    ASSERT_TRUE(RecordedWaits::WaitForWaits(variable, 2));
    variable.Notify();
    ASSERT_TRUE(WaitUntil([&woken] { return woken == 1; }));
    // That the other one stays asleep can only be seen by giving it time to wake.
    EXPECT_FALSE(WaitUntil([&woken] { return woken == 2; }, std::chrono::milliseconds(50)));
    variable.Notify();
    EXPECT_FALSE(first.get());
    EXPECT_FALSE(second.get());
}

TEST_F(TOstelConditionVariableTest, ANotificationWhileNobodyWaitsIsLost) {
    TOstelConditionVariable variable;
    variable.Notify();
    EXPECT_TRUE(variable.WaitFor(0.01));
}

TEST_F(TOstelConditionVariableTest, OnlyTheEndOfTheTimeCountsAsOver) {
    TOstelConditionVariable variable;
    RecordedWaits::Answer(ETIMEDOUT);
    EXPECT_TRUE(variable.WaitFor(1.0));
    RecordedWaits::Answer(0);
    EXPECT_FALSE(variable.WaitFor(1.0));
    RecordedWaits::Answer(EINVAL);
    EXPECT_FALSE(variable.WaitFor(1.0));
    RecordedWaits::Answer(EPERM);
    EXPECT_FALSE(variable.WaitFor(1.0));
    EXPECT_EQ(RecordedWaits::Of(variable).size(), 4U) << "waits once, whatever ended it";
}

TEST_F(TOstelConditionVariableTest, ANotificationIsGivenUnderTheLock) {
    TOstelConditionVariable variable;
    RecordedWaits::Answer(0);
    variable.WaitFor(1.0);
    variable.Notify();
    EXPECT_THAT(NamesOf(RecordedWaits::CallsOn(variable)), ElementsAre("signal"));
}

// The condition itself stays: destroying it would wait for waiters.
TEST_F(TOstelConditionVariableTest, ADestroyedOneWakesAllWaitersAndDestroysTheMutexAlone) {
    alignas(TOstelConditionVariable) std::array<std::byte, sizeof(TOstelConditionVariable)> place{};
    auto* const variable = new (place.data()) TOstelConditionVariable;
    RecordedWaits::Answer(0);
    variable->WaitFor(1.0);
    EXPECT_THAT(RecordedWaits::CallsOn(place), IsEmpty());
    variable->~TOstelConditionVariable();
    EXPECT_THAT(NamesOf(RecordedWaits::CallsOn(place)), ElementsAre("broadcast", "destroy mutex"));
}

struct TDeadline {
    std::timespec now;
    double seconds;
    std::timespec deadline;
};

void PrintTo(const TDeadline& one, std::ostream* out) {
    *out << one.seconds << " s from " << one.now.tv_sec << " s " << one.now.tv_nsec << " ns";
}

class Deadlines : public TOstelConditionVariableTest,
                  public testing::WithParamInterface<TDeadline> {};

TEST_P(Deadlines, AreThatFarFromNow) {
    TOstelConditionVariable variable;
    FixedTime::StopMonotonicAt(GetParam().now.tv_sec, GetParam().now.tv_nsec);
    RecordedWaits::Answer(ETIMEDOUT);
    EXPECT_TRUE(variable.WaitFor(GetParam().seconds));
    const auto waits = RecordedWaits::Of(variable);
    ASSERT_EQ(waits.size(), 1U);
    EXPECT_EQ(waits[0].deadline.tv_sec, GetParam().deadline.tv_sec);
    EXPECT_EQ(waits[0].deadline.tv_nsec, GetParam().deadline.tv_nsec);
}

INSTANTIATE_TEST_SUITE_P(
    TOstelConditionVariableTest, Deadlines,
    testing::Values(
        TDeadline{{100, 0}, 3.0, {103, 0}}, TDeadline{{100, 250000000}, 0.5, {100, 750000000}},
        TDeadline{{100, 600000000}, 1.5, {102, 100000000}},
        TDeadline{{100, 499999999}, 0.5, {100, 999999999}},
        TDeadline{{100, 500000000}, 0.5, {101, 0}}, TDeadline{{100, 7}, 9e-10, {100, 7}},
        TDeadline{{100, 0}, -3.0, {97, 0}},
        // No such deadline exists; it is for the wait to refuse it.
        TDeadline{{100, 0}, -0.5, {100, -500000000}},
        TDeadline{{100, 0}, 2147483000.0, {2147483100, 0}}, TDeadline{{100, 0}, 1e300, {theEnd, 0}},
        TDeadline{{100, 500000000},
                  2147483547.5,
                  {isWide ? static_cast<std::time_t>(2147483648LL) : lastSecond, 0}},
        TDeadline{
            {100, 0}, 4294967295.0, {isWide ? static_cast<std::time_t>(4294967395LL) : theEnd, 0}},
        TDeadline{{100, 0}, std::numeric_limits<double>::infinity(), {theEnd, 0}}));

TEST_F(TOstelConditionVariableTest, ATimeThatHasGoneByIsOverAtOnce) {
    TOstelConditionVariable variable;
    EXPECT_TRUE(variable.WaitFor(-1.0));
}

TEST_F(TOstelConditionVariableTest, AWaitThatIsRefusedCountsAsWoken) {
    TOstelConditionVariable variable;
    FixedTime::StopMonotonicAt(100, 0);
    EXPECT_FALSE(variable.WaitFor(-0.5));
    EXPECT_FALSE(variable.WaitFor(std::numeric_limits<double>::quiet_NaN()));
}

TEST_F(TOstelConditionVariableTest, TheLongestWaitWaits) {
    TOstelConditionVariable variable;
    auto isOver = std::async(std::launch::async, [&variable] {
        return variable.WaitFor(std::numeric_limits<double>::max());
    });
    ASSERT_TRUE(RecordedWaits::WaitForWaits(variable, 1));
    EXPECT_EQ(isOver.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    variable.Notify();
    EXPECT_FALSE(isOver.get());
}

}  // namespace
