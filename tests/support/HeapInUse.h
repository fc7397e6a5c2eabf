#ifndef HEAP_IN_USE_H
#define HEAP_IN_USE_H

#include <malloc.h>

#include <cstddef>
#include <cstdint>

// Only where a sanitizer takes the place of the C library's heap. The heap of the C library tells
// nothing there.
[[gnu::weak]] std::size_t BytesOfTheSanitizer() __asm__("__sanitizer_get_current_allocated_bytes");

// The bytes that this process has allocated and not given back.
inline std::int64_t HeapInUse() {
    if (BytesOfTheSanitizer != nullptr) {
        return static_cast<std::int64_t>(BytesOfTheSanitizer());
    }
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
}

#endif
