#include "ClockTest.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>

namespace {

std::atomic<bool> s_AreThreadsRefused{false};
std::atomic<int> s_FailingDescriptor{-1};
std::atomic<int> s_Error{0};

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
    return next(thread, attributes, body, argument);
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

}  // extern "C"

TRefusedThreads::TRefusedThreads() {
    s_AreThreadsRefused = true;
}

TRefusedThreads::~TRefusedThreads() {
    s_AreThreadsRefused = false;
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

void ExpireMonitorTimer(int error) {
    s_FailingDescriptor = TOpenFile("anon_inode:[timerfd]").descriptor;
    s_Error = error;
    itimerspec soon{};
    soon.it_value.tv_nsec = 1;
    ASSERT_EQ(timerfd_settime(s_FailingDescriptor, 0, &soon, nullptr), 0);
}
