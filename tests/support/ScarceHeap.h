#ifndef SCARCE_HEAP_H
#define SCARCE_HEAP_H

#include <cstddef>

// Takes the place of malloc, calloc and realloc inside a test program, those of the C libraries
// included, to let the calling thread run out of memory.
namespace ScarceHeap {

// The sanitizers have allocators of their own, which leave no place to take.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IS_HERE = false;
#else
constexpr bool IS_HERE = true;
#endif

enum class TFailures { ONE, ALL_THAT_FOLLOW };

// Has allocations of the calling thread fail: that after the next `count`, or all after them.
void FailAfter(std::size_t count, TFailures failures);

// Ends the failures; whether there were any.
bool GoOn();

// How many bytes the calling thread has allocated and not freed.
long Held();

}  // namespace ScarceHeap

#endif
