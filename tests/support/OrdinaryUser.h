#ifndef ORDINARY_USER_H
#define ORDINARY_USER_H

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

// What root may do, others may not: the process is an ordinary user as long as the object lives.
class TOrdinaryUser {
public:
    TOrdinaryUser() : m_Before(geteuid()) {
        if (m_Before == 0) {
            EXPECT_EQ(seteuid(65534), 0);
        }
    }
    TOrdinaryUser(const TOrdinaryUser&) = delete;
    TOrdinaryUser& operator=(const TOrdinaryUser&) = delete;
    ~TOrdinaryUser() { EXPECT_EQ(seteuid(m_Before), 0); }

private:
    uid_t m_Before;
};

#endif
