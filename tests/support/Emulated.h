#ifndef EMULATED_H
#define EMULATED_H

#include <gtest/gtest.h>

// Ends a test that asks for what the emulator of another processor does not do.
#if OSTEL_EMULATED
#define SKIP_WHERE_EMULATED(reason) GTEST_SKIP() << "the emulator " << (reason)
#else
#define SKIP_WHERE_EMULATED(reason) static_cast<void>(reason)
#endif

#endif
