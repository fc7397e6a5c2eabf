#ifndef SIGNAL_STORM_H
#define SIGNAL_STORM_H

#include <pthread.h>
#include <sys/time.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

// Interrupts the system calls of the thread that made it, every two milliseconds.
class TSignalStorm {
public:
    TSignalStorm() {
        struct sigaction action = {};
        action.sa_handler = [](int) { ++s_Count; };  // and no SA_RESTART
        sigaction(SIGALRM, &action, &m_Before);
        Repeat(2000);
    }
    TSignalStorm(const TSignalStorm&) = delete;
    TSignalStorm& operator=(const TSignalStorm&) = delete;
    ~TSignalStorm() {
        Repeat(0);
        sigaction(SIGALRM, &m_Before, nullptr);
    }

    // A thread that the signals do not reach. It acts after some of them.
    static std::thread Later(const std::function<void()>& act) {
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
        std::thread thread([act] {
            const int end = s_Count + 20;
            while (s_Count < end) {
                std::this_thread::yield();
            }
            act();
        });
        pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
        return thread;
    }

private:
    static void Repeat(int microseconds) {
        const itimerval timer = {{0, microseconds}, {0, microseconds}};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }

    static inline std::atomic<int> s_Count{0};
    struct sigaction m_Before = {};
};

#endif
