#include "RecordedWaits.h"

#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <optional>

#include "OstelApi.h"
#include "WaitUntil.h"

namespace {

struct TCall {
    const void* condition;
    RecordedWaits::TWait wait;
};

struct TState {
    std::mutex mutex;
    std::vector<TCall> waits;
    std::vector<const void*> broadcasts;
    std::optional<int> answer;
};

// Never destroyed: other threads may wait while the program exits.
TState& State() {
    static auto* const state = new TState;
    return *state;
}

bool IsWithin(const void* condition, const void* object, std::size_t size) {
    const auto* const begin = static_cast<const char*>(object);
    const auto* const place = static_cast<const char*>(condition);
    return !std::less<>()(place, begin) && std::less<>()(place, begin + size);
}

// ThreadSanitizer has to see the calls as well, or it takes the mutex as held all through a wait.
// Without it, the C library has older forms with a smaller condition under the same names.
template <typename Function>
Function* Next(const char* name) {
#ifdef __SANITIZE_THREAD__
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
#else
    return reinterpret_cast<Function*>(dlvsym(RTLD_NEXT, name, "GLIBC_2.3.2"));
#endif
}

double SecondsUntil(const timespec& deadline) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::difftime(deadline.tv_sec, now.tv_sec) +
           static_cast<double>(deadline.tv_nsec - now.tv_nsec) / 1e9;
}

std::optional<int> Record(const void* condition, const timespec& deadline) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.waits.push_back({condition, {deadline, SecondsUntil(deadline)}});
    return state.answer;
}

}  // namespace

extern "C" {

OSTEL_API int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                     const timespec* deadline) {
    static auto* const next = Next<decltype(pthread_cond_timedwait)>("pthread_cond_timedwait");
    const std::optional<int> answer = Record(condition, *deadline);
    return answer ? *answer : next(condition, mutex, deadline);
}

OSTEL_API int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    static auto* const next = Next<decltype(pthread_cond_broadcast)>("pthread_cond_broadcast");
    {
        TState& state = State();
        const std::lock_guard<std::mutex> lock(state.mutex);
        state.broadcasts.push_back(condition);
    }
    return next(condition);
}

}  // extern "C"

std::vector<RecordedWaits::TWait> RecordedWaits::Of(const void* object, std::size_t size) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    std::vector<TWait> waits;
    for (const TCall& call : state.waits) {
        if (IsWithin(call.condition, object, size)) {
            waits.push_back(call.wait);
        }
    }
    return waits;
}

bool RecordedWaits::WaitForWaits(const void* object, std::size_t size, std::size_t count) {
    return WaitUntil([=] { return Of(object, size).size() >= count; });
}

void RecordedWaits::Answer(int result) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.answer = result;
}

std::size_t RecordedWaits::Broadcasts(const void* object, std::size_t size) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    return static_cast<std::size_t>(
        std::count_if(state.broadcasts.begin(), state.broadcasts.end(),
                      [=](const void* condition) { return IsWithin(condition, object, size); }));
}

void RecordedWaits::Clear() {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.waits.clear();
    state.broadcasts.clear();
    state.answer.reset();
}
