#ifndef ALLOCATIONS_H
#define ALLOCATIONS_H

#include <cstddef>

// Takes the place of operator new inside a test program, to count what the calling thread
// allocates and to let it run out of memory.
namespace Allocations {

std::size_t Count();

// Has one allocation of the calling thread fail with std::bad_alloc: that after the next `count`.
void FailOneAfter(std::size_t count);

// Has each allocation of the calling thread fail that is larger.
void FailAbove(std::size_t size);

// Takes back failures that have not come yet.
void GoOn();

}  // namespace Allocations

#endif
