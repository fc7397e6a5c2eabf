#ifndef SCARCE_THREADS_H
#define SCARCE_THREADS_H

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>

// A process that has room for so many more threads only, as on a small device. Each new thread gets
// a stack so large that the limit on addresses is met by stacks and by nothing else.
class ScarceThreads {
public:
    explicit ScarceThreads(std::size_t count) {
        pthread_getattr_default_np(&m_Attributes);
        pthread_attr_t large{};
        pthread_attr_init(&large);
        pthread_attr_setstacksize(&large, STACK);
        EXPECT_EQ(pthread_setattr_default_np(&large), 0);
        pthread_attr_destroy(&large);
        getrlimit(RLIMIT_AS, &m_Limit);
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlimit limit = {
            pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + count * STACK + STACK / 2,
            m_Limit.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
    }
    ScarceThreads(const ScarceThreads&) = delete;
    ScarceThreads& operator=(const ScarceThreads&) = delete;
    ~ScarceThreads() {
        setrlimit(RLIMIT_AS, &m_Limit);
        pthread_setattr_default_np(&m_Attributes);
        pthread_attr_destroy(&m_Attributes);
    }

private:
    static constexpr std::size_t STACK = std::size_t{256} << 20;

    pthread_attr_t m_Attributes{};
    rlimit m_Limit{};
};

#endif
