#include "Stop.h"

#include <semaphore.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <initializer_list>

namespace {

// A handler knows no object.
sem_t s_Wakeup;
std::atomic<int> s_Signal{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler sets it");

void OnSignal(int signal) {
    const int error = errno;
    s_Signal = signal;
    sem_post(&s_Wakeup);
    errno = error;
}

void Handle(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM}) {
        sigaction(signal, &action, nullptr);
    }
}

}  // namespace

TStop::TStop() {
    s_Signal = 0;
    sem_init(&s_Wakeup, 0, 0);
}

TStop::~TStop() {
    Handle(SIG_DFL);
}

void TStop::Catch() {
    Handle(OnSignal);
}

void TStop::Wake() {
    sem_post(&s_Wakeup);
}

void TStop::Wait() {
    while (sem_wait(&s_Wakeup) != 0 && errno == EINTR) {
    }
}

int TStop::Signal() const {
    return s_Signal;
}
