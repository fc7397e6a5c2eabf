#include "RecordedWaits.h"

#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <optional>

#include "OstelApi.h"
#include "WaitUntil.h"

namespace {

struct TWaitCall {
    const void* condition;
    pthread_mutex_t* mutex;
    RecordedWaits::TWait wait;
};

struct TOtherCall {
    std::string name;
    const void* place;
};

struct TState {
    std::mutex mutex;
    std::vector<TWaitCall> waits;
    std::vector<TOtherCall> others;
    std::optional<int> answer;
};

// Never destroyed: other threads may wait while the program exits.
TState& State() {
    static auto* const state = new TState;
    return *state;
}

// The distance from the object's start; none outside of it.
std::optional<std::size_t> OffsetIn(const void* object, std::size_t size, const void* place) {
    const auto begin = reinterpret_cast<std::uintptr_t>(object);
    const auto distance = reinterpret_cast<std::uintptr_t>(place) - begin;
    return distance < size ? std::make_optional<std::size_t>(distance) : std::nullopt;
}

// ThreadSanitizer has to see the calls as well, or it takes the mutex as held all through a wait.
// Without it, a C library that has older forms with a smaller condition under the same names would
// give those.
template <typename Function>
Function* Next(const char* name) {
    void* next = nullptr;
#ifndef __SANITIZE_THREAD__
    next = dlvsym(RTLD_NEXT, name, "GLIBC_2.3.2");
#endif
    return reinterpret_cast<Function*>(next != nullptr ? next : dlsym(RTLD_NEXT, name));
}

double SecondsUntil(const timespec& deadline) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::difftime(deadline.tv_sec, now.tv_sec) +
           static_cast<double>(deadline.tv_nsec - now.tv_nsec) / 1e9;
}

std::optional<int> Record(const void* condition, pthread_mutex_t* mutex, const timespec& deadline) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.waits.push_back({condition, mutex, {deadline, SecondsUntil(deadline)}});
    return state.answer;
}

// Whether somebody, be it the caller, holds the mutex that the last wait on the condition gave up.
bool IsLocked(const std::vector<TWaitCall>& waits, const void* condition) {
    const auto last = std::find_if(waits.rbegin(), waits.rend(), [=](const TWaitCall& call) {
        return call.condition == condition;
    });
    if (last == waits.rend()) {
        return true;
    }
    if (pthread_mutex_trylock(last->mutex) != 0) {
        return true;
    }
    pthread_mutex_unlock(last->mutex);
    return false;
}

void RecordWake(const std::string& name, const void* condition) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    const char* const lack = IsLocked(state.waits, condition) ? "" : " without the lock";
    state.others.push_back({name + lack, condition});
}

void RecordOther(const char* name, const void* place) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.others.push_back({name, place});
}

}  // namespace

extern "C" {

OSTEL_API int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                     const timespec* deadline) {
    static auto* const next = Next<decltype(pthread_cond_timedwait)>("pthread_cond_timedwait");
    const std::optional<int> answer = Record(condition, mutex, *deadline);
    return answer ? *answer : next(condition, mutex, deadline);
}

OSTEL_API int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    static auto* const next = Next<decltype(pthread_cond_signal)>("pthread_cond_signal");
    RecordWake("signal", condition);
    return next(condition);
}

OSTEL_API int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    static auto* const next = Next<decltype(pthread_cond_broadcast)>("pthread_cond_broadcast");
    RecordWake("broadcast", condition);
    return next(condition);
}

OSTEL_API int pthread_cond_destroy(pthread_cond_t* condition) noexcept {
    static auto* const next = Next<decltype(pthread_cond_destroy)>("pthread_cond_destroy");
    RecordOther("destroy condition", condition);
    return next(condition);
}

OSTEL_API int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
    static auto* const next = reinterpret_cast<decltype(&pthread_mutex_destroy)>(
        dlsym(RTLD_NEXT, "pthread_mutex_destroy"));
    RecordOther("destroy mutex", mutex);
    return next(mutex);
}

}  // extern "C"

std::vector<RecordedWaits::TWait> RecordedWaits::Of(const void* object, std::size_t size) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    std::vector<TWait> waits;
    for (const TWaitCall& call : state.waits) {
        if (OffsetIn(object, size, call.condition)) {
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

std::vector<RecordedWaits::TCall> RecordedWaits::CallsOn(const void* object, std::size_t size) {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    std::vector<TCall> calls;
    for (const TOtherCall& call : state.others) {
        if (const auto offset = OffsetIn(object, size, call.place)) {
            calls.push_back({call.name, *offset});
        }
    }
    return calls;
}

std::vector<std::string> RecordedWaits::NamesOf(const std::vector<TCall>& calls) {
    std::vector<std::string> names;
    for (const TCall& call : calls) {
        names.push_back(call.name);
    }
    return names;
}

void RecordedWaits::Clear() {
    TState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.waits.clear();
    state.others.clear();
    state.answer.reset();
}
