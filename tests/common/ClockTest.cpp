#include "ClockTest.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

namespace {

std::atomic<bool> s_AreThreadsRefused{false};
std::atomic<int> s_FailingDescriptor{-1};
std::atomic<int> s_Error{0};
std::atomic<int> s_EndlessPolls{0};
std::atomic<bool> s_AreFifosRefused{false};
std::atomic<bool> s_AreTimersRefused{false};
std::atomic<bool> s_IsNextFifoTaken{false};
std::string s_TakenFifo;

struct THeldBody {
    void* (*body)(void*);
    void* argument;
    std::function<bool()> condition;
};

std::unique_ptr<THeldBody> s_NextHeld;

void* RunWhenItMay(void* given) {
    const std::unique_ptr<THeldBody> held(static_cast<THeldBody*>(given));
    EXPECT_TRUE(WaitUntil(held->condition));
    return held->body(held->argument);
}

bool IsFifoPath(const char* path) {
    return std::string_view(path).rfind("/tmp/ostel_clock_", 0) == 0;
}

}  // namespace

// These take the place of the C library's.
extern "C" {

OSTEL_API int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                             void* (*body)(void*), void* argument) noexcept {
    if (s_AreThreadsRefused) {
        return EAGAIN;
    }
    static auto* const next =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    if (!s_NextHeld) {
        return next(thread, attributes, body, argument);
    }
    s_NextHeld->body = body;
    s_NextHeld->argument = argument;
    return next(thread, attributes, RunWhenItMay, s_NextHeld.release());
}

OSTEL_API ssize_t read(int descriptor, void* bytes, size_t length) {
    static auto* const next = reinterpret_cast<decltype(&read)>(dlsym(RTLD_NEXT, "read"));
    const ssize_t count = next(descriptor, bytes, length);
    if (descriptor == s_FailingDescriptor) {
        if (const int error = s_Error.exchange(0)) {
            errno = error;
            return -1;
        }
    }
    return count;
}

OSTEL_API int poll(pollfd* descriptors, nfds_t count, int timeout) {
    static auto* const next = reinterpret_cast<decltype(&poll)>(dlsym(RTLD_NEXT, "poll"));
    if (timeout == -1) {
        ++s_EndlessPolls;
    }
    return next(descriptors, count, timeout);
}

OSTEL_API int stat(const char* path, struct stat* status) noexcept {
    using TStat = int (*)(const char*, struct stat*);
    static const auto next = reinterpret_cast<TStat>(dlsym(RTLD_NEXT, "stat"));
    if (IsFifoPath(path) && s_IsNextFifoTaken.exchange(false)) {
        s_TakenFifo = path;
        path = "/";
    }
    return next(path, status);
}

OSTEL_API int mkfifo(const char* path, mode_t mode) noexcept {
    if (s_AreFifosRefused) {
        errno = EROFS;
        return -1;
    }
    return reinterpret_cast<decltype(&mkfifo)>(dlsym(RTLD_NEXT, "mkfifo"))(path, mode);
}

OSTEL_API int timerfd_create(clockid_t clock, int flags) noexcept {
    if (s_AreTimersRefused) {
        errno = EMFILE;
        return -1;
    }
    return reinterpret_cast<decltype(&timerfd_create)>(dlsym(RTLD_NEXT, "timerfd_create"))(clock,
                                                                                           flags);
}

}  // extern "C"

ClockTest::ClockTest() {
    setenv("TZ", "UTC0", 1);
    FixedTime::GoOn();
    RecordedWaits::Clear();
    RecordingLog::Clear();
    s_EndlessPolls = 0;
}

TRefusedThreads::TRefusedThreads() {
    s_AreThreadsRefused = true;
}

TRefusedThreads::~TRefusedThreads() {
    s_AreThreadsRefused = false;
}

void HoldNextThread(std::function<bool()> condition) {
    s_NextHeld.reset(new THeldBody{nullptr, nullptr, std::move(condition)});
}

void RefuseFifos() {
    s_AreFifosRefused = true;
}

void RefuseTimers() {
    s_AreTimersRefused = true;
}

TOpenFile::TOpenFile(const std::string& beginning) {
    for (const auto& link : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code isGone;
        std::filesystem::path target = std::filesystem::read_symlink(link, isGone);
        if (target.string().rfind(beginning, 0) == 0) {
            descriptor = std::stoi(link.path().filename().string());
            path = std::move(target);
        }
    }
}

std::string TakeNextFifoPath(const std::function<void()>& makeClock) {
    s_TakenFifo.clear();
    s_IsNextFifoTaken = true;
    makeClock();
    s_IsNextFifoTaken = false;
    return s_TakenFifo;
}

bool WaitForMonitor(int times) {
    return WaitUntil([times] { return s_EndlessPolls >= times; });
}

void ExpireMonitorTimer(int error) {
    s_FailingDescriptor = TOpenFile("anon_inode:[timerfd]").descriptor;
    s_Error = error;
    itimerspec soon{};
    soon.it_value.tv_nsec = 1;
    ASSERT_EQ(timerfd_settime(s_FailingDescriptor, 0, &soon, nullptr), 0);
}
