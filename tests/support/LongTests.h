#ifndef LONG_TESTS_H
#define LONG_TESTS_H

#include <cstdlib>

// How often to do what is the surer the longer it goes on: `many` times where there is time for it,
// which OSTEL_LONG_TESTS in the environment says.
inline int Rounds(int few, int many) {
    return std::getenv("OSTEL_LONG_TESTS") != nullptr ? many : few;
}

#endif
