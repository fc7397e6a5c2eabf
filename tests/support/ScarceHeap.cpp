#include "ScarceHeap.h"

#include <malloc.h>

#include <cerrno>
#include <limits>

namespace {

constexpr std::size_t UNLIMITED = std::numeric_limits<std::size_t>::max();

// Constant from the start: allocations come before anything could be constructed.
thread_local std::size_t remaining = UNLIMITED;
thread_local bool isOneToFail = true;
thread_local bool hasFailed = false;
thread_local long held = 0;

}  // namespace

void ScarceHeap::FailAfter(std::size_t count, TFailures failures) {
    hasFailed = false;
    isOneToFail = failures == TFailures::ONE;
    remaining = count;
}

bool ScarceHeap::GoOn() {
    remaining = UNLIMITED;
    return hasFailed;
}

long ScarceHeap::Held() {
    return held;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace {

bool Fails() {
    if (remaining == UNLIMITED) {
        return false;
    }
    if (remaining > 0) {
        --remaining;
        return false;
    }
    hasFailed = true;
    remaining = isOneToFail ? UNLIMITED : 0;
    errno = ENOMEM;
    return true;
}

long Size(void* memory) {
    return static_cast<long>(malloc_usable_size(memory));
}

void* Counted(void* memory) {
    held += Size(memory);
    return memory;
}

}  // namespace

#define TAKES_THE_SYSTEMS_PLACE extern "C" __attribute__((visibility("default")))

// The system's own, which these stand before.
extern "C" {
void* SystemMalloc(std::size_t size) __asm__("__libc_malloc");
void* SystemCalloc(std::size_t count, std::size_t size) __asm__("__libc_calloc");
void* SystemRealloc(void* memory, std::size_t size) __asm__("__libc_realloc");
void SystemFree(void* memory) __asm__("__libc_free");
}

TAKES_THE_SYSTEMS_PLACE void* malloc(std::size_t size) {
    return Fails() ? nullptr : Counted(SystemMalloc(size));
}

TAKES_THE_SYSTEMS_PLACE void* calloc(std::size_t count, std::size_t size) {
    return Fails() ? nullptr : Counted(SystemCalloc(count, size));
}

TAKES_THE_SYSTEMS_PLACE void* realloc(void* memory, std::size_t size) {
    if (Fails()) {
        return nullptr;
    }
    const long before = Size(memory);
    void* const moved = SystemRealloc(memory, size);
    held += moved != nullptr || size == 0 ? Size(moved) - before : 0;
    return moved;
}

TAKES_THE_SYSTEMS_PLACE void free(void* memory) {
    held -= Size(memory);
    SystemFree(memory);
}

#endif
