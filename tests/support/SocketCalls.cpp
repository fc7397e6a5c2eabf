#include "SocketCalls.h"

#include <dlfcn.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>

namespace {

struct TSend {
    std::string bytes;
    int flags;
};

struct TState {
    std::mutex mutex;
    std::vector<SocketCalls::TConnect> connects;
    std::vector<SocketCalls::TOption> options;
    std::vector<TSend> sends;
    std::pair<int, int> failingOption{-1, -1};
    std::string failingSend;
};

TState& State() {
    static TState state;
    return state;
}

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <typename T>
std::vector<T> Copy(const std::vector<T>& calls) {
    const std::lock_guard<std::mutex> lock(State().mutex);
    return calls;
}

}  // namespace

#define TAKES_THE_SYSTEMS_PLACE extern "C" __attribute__((visibility("default")))

TAKES_THE_SYSTEMS_PLACE int connect(int descriptor, const sockaddr* address, socklen_t length) {
    {
        const std::lock_guard<std::mutex> lock(State().mutex);
        State().connects.push_back({address->sa_family, length});
    }
    static auto* const next = Next<int(int, const sockaddr*, socklen_t)>("connect");
    return next(descriptor, address, length);
}

TAKES_THE_SYSTEMS_PLACE int setsockopt(int descriptor, int level, int option, const void* value,
                                       socklen_t length) noexcept {
    {
        const std::lock_guard<std::mutex> lock(State().mutex);
        int number = -1;
        if (length == sizeof(number)) {
            std::memcpy(&number, value, sizeof(number));
        }
        State().options.push_back({level, option, number});
        if (State().failingOption == std::pair(level, option)) {
            errno = ENOPROTOOPT;
            return -1;
        }
    }
    static auto* const next = Next<int(int, int, int, const void*, socklen_t)>("setsockopt");
    return next(descriptor, level, option, value, length);
}

TAKES_THE_SYSTEMS_PLACE ssize_t send(int descriptor, const void* bytes, size_t length, int flags) {
    {
        const std::lock_guard<std::mutex> lock(State().mutex);
        State().sends.push_back({std::string(static_cast<const char*>(bytes), length), flags});
        if (length > 0 && State().sends.back().bytes == State().failingSend) {
            errno = ECONNRESET;
            return -1;
        }
    }
    static auto* const next = Next<ssize_t(int, const void*, size_t, int)>("send");
    return next(descriptor, bytes, length, flags);
}

namespace SocketCalls {

std::vector<TConnect> Connects() {
    return Copy(State().connects);
}

std::vector<TOption> Options() {
    return Copy(State().options);
}

std::vector<int> SendsOf(const std::string& bytes) {
    std::vector<int> flags;
    for (const TSend& send : Copy(State().sends)) {
        if (send.bytes == bytes) {
            flags.push_back(send.flags);
        }
    }
    return flags;
}

void FailOption(int level, int option) {
    const std::lock_guard<std::mutex> lock(State().mutex);
    State().failingOption = {level, option};
}

void FailSendsOf(const std::string& bytes) {
    const std::lock_guard<std::mutex> lock(State().mutex);
    State().failingSend = bytes;
}

void Clear() {
    const std::lock_guard<std::mutex> lock(State().mutex);
    State().connects.clear();
    State().options.clear();
    State().sends.clear();
    State().failingOption = {-1, -1};
    State().failingSend.clear();
}

}  // namespace SocketCalls
