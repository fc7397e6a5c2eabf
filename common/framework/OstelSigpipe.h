// Internal, not installed: how a write bears a peer that is gone.
#ifndef OSTEL_SIGPIPE_H
#define OSTEL_SIGPIPE_H

#include <cerrno>
#include <csignal>
#include <ctime>

// While it lives, a write to a closed connection fails instead of ending the process. What SIGPIPE
// does to the process is the application's own decision: it is blocked on the calling thread only,
// and the one that came meanwhile is taken away. One that was pending before stays.
class OstelSigpipeBlock {
public:
    OstelSigpipeBlock() {
        sigset_t pending;
        sigpending(&pending);
        m_WasPending = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&m_Sigpipe);
        sigaddset(&m_Sigpipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_Sigpipe, &m_Before);
    }

    OstelSigpipeBlock(const OstelSigpipeBlock&) = delete;
    OstelSigpipeBlock& operator=(const OstelSigpipeBlock&) = delete;

    ~OstelSigpipeBlock() {
        const int error = errno;
        if (!m_WasPending) {
            constexpr timespec noWait{};
            sigtimedwait(&m_Sigpipe, nullptr, &noWait);
        }
        pthread_sigmask(SIG_SETMASK, &m_Before, nullptr);
        errno = error;  // the write's own, for whom it may concern
    }

private:
    sigset_t m_Sigpipe;
    sigset_t m_Before;
    bool m_WasPending;
};

#endif
