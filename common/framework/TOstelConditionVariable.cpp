#include "TOstelConditionVariable.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <limits>

#include "OstelGenericUtils.h"

namespace {

class TLock {
public:
    explicit TLock(pthread_mutex_t& mutex) : m_Mutex(mutex) { pthread_mutex_lock(&m_Mutex); }
    TLock(const TLock&) = delete;
    TLock& operator=(const TLock&) = delete;
    ~TLock() { pthread_mutex_unlock(&m_Mutex); }

private:
    pthread_mutex_t& m_Mutex;
};

// As far as time_t reaches, with room for a second to be carried. On 32 bits a period can be
// longer.
time_t AddSeconds(time_t start, double seconds) {
    constexpr double most = 9e18;  // stays within 64 bits when added
    const std::int64_t sum = start + static_cast<std::int64_t>(std::clamp(seconds, -most, most));
    using TLimits = std::numeric_limits<time_t>;
    return static_cast<time_t>(std::clamp<std::int64_t>(sum, TLimits::min(), TLimits::max() - 1));
}

timespec DeadlineIn(double seconds) {
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    double whole = 0.0;
    const double fraction = std::modf(seconds, &whole);
    deadline.tv_nsec += static_cast<long>(fraction * 1000000000);
    deadline.tv_sec = AddSeconds(deadline.tv_sec, whole);
    if (deadline.tv_nsec > 999999999) {
        ++deadline.tv_sec;
        deadline.tv_nsec -= 1000000000;
    }
    return deadline;
}

}  // namespace

TOstelConditionVariable::TOstelConditionVariable() : m_Mutex() {
    const TLock lock(m_Mutex);
    OstelGenericUtils::PThreadCondInit(m_Condition);
}

// The condition itself is left alone: destroying it would block until the last woken waiter is
// gone.
TOstelConditionVariable::~TOstelConditionVariable() {
    {
        const TLock lock(m_Mutex);
        pthread_cond_broadcast(&m_Condition);
    }
    pthread_mutex_destroy(&m_Mutex);
}

bool TOstelConditionVariable::WaitFor(double seconds) {
    if (seconds == 0.0) {
        return true;
    }
    if (std::isnan(seconds)) {
        return false;
    }
    const timespec deadline = DeadlineIn(seconds);
    const TLock lock(m_Mutex);
    // Once, without a predicate: whatever ends the wait before its time counts as woken.
    return pthread_cond_timedwait(&m_Condition, &m_Mutex, &deadline) == ETIMEDOUT;
}

void TOstelConditionVariable::Notify() {
    const TLock lock(m_Mutex);
    pthread_cond_signal(&m_Condition);
}
