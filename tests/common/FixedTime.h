#ifndef FIXED_TIME_H
#define FIXED_TIME_H

#include <ctime>
#include <string>

// Takes the place of the C library's real-time clock inside a test program. It runs as always until
// it is stopped; the monotonic clock is left alone.
namespace FixedTime {

void StopAt(std::time_t seconds, long nanoseconds = 0);

// Sets the process's time zone and stops the clock at a local time such as "2024-05-01 13:45:10".
void StopAt(const std::string& zone, const std::string& local);

}  // namespace FixedTime

#endif
