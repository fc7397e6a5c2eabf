#ifndef RECORDED_WAITS_H
#define RECORDED_WAITS_H

#include <chrono>
#include <cstddef>
#include <ctime>
#include <vector>

// Stands before the C library's timed waits on a condition inside a test program and keeps those of
// the objects that a test asks for. Safe from any thread.
namespace RecordedWaits {

struct TWait {
    std::timespec deadline;
    double seconds;  // from the call to the deadline on the monotonic clock
};

// Waits on a condition within the object, in order of their start. One that is listed can be
// notified: it still holds its mutex, or waits already.
std::vector<TWait> Of(const void* object, std::size_t size);

template <typename T>
std::vector<TWait> Of(const T& object) {
    return Of(&object, sizeof(object));
}

// Waits until the object has begun that many waits.
bool WaitForWaits(const void* object, std::size_t size, std::size_t count);

template <typename T>
bool WaitForWaits(const T& object, std::size_t count) {
    return WaitForWaits(&object, sizeof(object), count);
}

// From now on a wait returns `result` at once.
void Answer(int result);

// How many times all waiters on a condition within the place were woken.
std::size_t Broadcasts(const void* object, std::size_t size);

// Nothing is kept and nothing answered any more. For objects in a place that had others before.
void Clear();

}  // namespace RecordedWaits

#endif
