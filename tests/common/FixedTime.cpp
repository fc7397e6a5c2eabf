#include "FixedTime.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "OstelApi.h"

namespace {

std::atomic<bool> stopped{false};
std::atomic<std::time_t> stoppedSeconds{0};
std::atomic<long> stoppedNanoseconds{0};

}  // namespace

extern "C" {

// Visible, so that the libraries find them before those of the C library.
OSTEL_API int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (clock == CLOCK_REALTIME && stopped) {
        now->tv_sec = stoppedSeconds;
        now->tv_nsec = stoppedNanoseconds;
        return 0;
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
    stoppedSeconds = seconds;
    stoppedNanoseconds = nanoseconds;
    stopped = true;
}

void FixedTime::StopAt(const std::string& zone, const std::string& local) {
    setenv("TZ", zone.c_str(), 1);
    std::tm time{};
    time.tm_isdst = -1;
    ASSERT_NE(strptime(local.c_str(), "%F %T", &time), nullptr) << local;
    StopAt(std::mktime(&time));
}
