#ifndef PROCESSORS_H
#define PROCESSORS_H

#include <sched.h>

#include <cstdlib>
#include <string>

// On which processors this thread runs, and the threads and servers that it starts. A round trip
// takes half as long again when chance puts its ends on different ones, so all of them are kept on
// that of the bus.
namespace Processors {

inline void UseThatOfTheBus() {
    const char* const processor = std::getenv("OSTEL_BENCH_PROCESSOR");
    if (processor != nullptr) {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(std::stoul(processor), &set);
        sched_setaffinity(0, sizeof(set), &set);
    }
}

// As long as it lives.
class TUseAll {
public:
    TUseAll() {
        sched_getaffinity(0, sizeof(m_Before), &m_Before);
        cpu_set_t all;
        CPU_ZERO(&all);
        for (unsigned int processor = 0; processor < CPU_SETSIZE; ++processor) {
            CPU_SET(processor, &all);
        }
        sched_setaffinity(0, sizeof(all), &all);
    }
    TUseAll(const TUseAll&) = delete;
    TUseAll& operator=(const TUseAll&) = delete;
    ~TUseAll() { sched_setaffinity(0, sizeof(m_Before), &m_Before); }

private:
    cpu_set_t m_Before{};
};

}  // namespace Processors

#endif
