#include "FixedTime.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "OstelApi.h"

namespace {

struct TStopped {
    std::atomic<bool> isStopped{false};
    std::atomic<std::time_t> seconds{0};
    std::atomic<long> nanoseconds{0};
};

TStopped realTime;
TStopped monotonic;

void Stop(TStopped& clock, std::time_t seconds, long nanoseconds) {
    clock.seconds = seconds;
    clock.nanoseconds = nanoseconds;
    clock.isStopped = true;
}

}  // namespace

extern "C" {

// Visible, so that the libraries find them before those of the C library.
OSTEL_API int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (clock == CLOCK_REALTIME || clock == CLOCK_MONOTONIC) {
        const TStopped& stopped = clock == CLOCK_REALTIME ? realTime : monotonic;
        if (stopped.isStopped) {
            now->tv_sec = stopped.seconds;
            now->tv_nsec = stopped.nanoseconds;
            return 0;
        }
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
}

OSTEL_API std::time_t time(std::time_t* out) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (out != nullptr) {
        *out = now.tv_sec;
    }
    return now.tv_sec;
}

}  // extern "C"

void FixedTime::StopAt(std::time_t seconds, long nanoseconds) {
    Stop(realTime, seconds, nanoseconds);
}

void FixedTime::StopMonotonicAt(std::time_t seconds, long nanoseconds) {
    Stop(monotonic, seconds, nanoseconds);
}

void FixedTime::StopAt(const std::string& zone, const std::string& local) {
    setenv("TZ", zone.c_str(), 1);
    std::tm time{};
    time.tm_isdst = -1;
    ASSERT_NE(strptime(local.c_str(), "%F %T", &time), nullptr) << local;
    StopAt(std::mktime(&time));
}

void FixedTime::GoOn() {
    realTime.isStopped = false;
    monotonic.isStopped = false;
}
