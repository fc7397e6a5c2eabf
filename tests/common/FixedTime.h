#ifndef FIXED_TIME_H
#define FIXED_TIME_H

#include <ctime>
#include <string>

// Takes the place of the C library's clocks inside a test program. They run as always until they
// are stopped.
namespace FixedTime {

void StopAt(std::time_t seconds, long nanoseconds = 0);

// Sets the process's time zone and stops the clock at a local time such as "2024-05-01 13:45:10".
void StopAt(const std::string& zone, const std::string& local);

// With it, whatever waits for a time to come waits for ever.
void StopMonotonicAt(std::time_t seconds, long nanoseconds);

void GoOn();

}  // namespace FixedTime

#endif
