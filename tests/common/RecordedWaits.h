#ifndef RECORDED_WAITS_H
#define RECORDED_WAITS_H

#include <chrono>
#include <cstddef>
#include <ctime>
#include <string>
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

// What else was done to the conditions and mutexes within an object.
struct TCall {
    // "signal" or "broadcast", "without the lock" behind it when the mutex of the last wait was
    // free; "destroy mutex"; "destroy condition".
    std::string name;
    std::size_t offset;  // of the condition or mutex from the object's start
};

std::vector<TCall> CallsOn(const void* object, std::size_t size);

template <typename T>
std::vector<TCall> CallsOn(const T& object) {
    return CallsOn(&object, sizeof(object));
}

std::vector<std::string> NamesOf(const std::vector<TCall>& calls);

// Nothing is kept and nothing answered any more. For objects in a place that had others before.
void Clear();

}  // namespace RecordedWaits

#endif
