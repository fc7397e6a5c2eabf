#ifndef NO_PROCESSES_H
#define NO_PROCESSES_H

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

// As long as it lives the system has neither a process nor a thread left for this one.
class TNoProcesses {
public:
    TNoProcesses() : m_User(getuid()) {
        getrlimit(RLIMIT_NPROC, &m_Before);
        const rlimit none{0, m_Before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
        if (m_User == 0) {
            // The limit does not hold for the superuser.
            EXPECT_EQ(setresuid(65534, 65534, 0), 0);
        }
    }
    TNoProcesses(const TNoProcesses&) = delete;
    TNoProcesses& operator=(const TNoProcesses&) = delete;
    ~TNoProcesses() {
        EXPECT_EQ(setresuid(m_User, m_User, m_User), 0);
        EXPECT_EQ(setrlimit(RLIMIT_NPROC, &m_Before), 0);
    }

private:
    uid_t m_User;
    rlimit m_Before{};
};

#endif
