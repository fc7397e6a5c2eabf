#include "Allocations.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t UNLIMITED = std::numeric_limits<std::size_t>::max();

thread_local std::size_t allocated = 0;
thread_local std::size_t remaining = UNLIMITED;
thread_local std::size_t largest = UNLIMITED;

}  // namespace

void* operator new(std::size_t size) {
    if (remaining == 0) {
        remaining = UNLIMITED;
        throw std::bad_alloc();
    }
    if (remaining != UNLIMITED) {
        --remaining;
    }
    ++allocated;
    void* const memory = size <= largest ? std::malloc(size == 0 ? 1 : size) : nullptr;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

std::size_t Allocations::Count() {
    return allocated;
}

void Allocations::FailOneAfter(std::size_t count) {
    remaining = count;
}

void Allocations::FailAbove(std::size_t size) {
    largest = size;
}

void Allocations::GoOn() {
    remaining = UNLIMITED;
    largest = UNLIMITED;
}
