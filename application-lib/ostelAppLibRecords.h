// Not installed: what the flat interface's functions share to fill the records of their callers.
#ifndef OSTEL_APP_LIB_RECORDS_H
#define OSTEL_APP_LIB_RECORDS_H

#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "TOstelApplication.h"
#include "ostelAppLib.h"
#include "zt_logging.h"

namespace ostel_app_lib {

using TParams = std::vector<TOstelApplication::TOstelAppParam>;

// Runs `work`; what it throws is logged and must not reach a C caller.
template <typename Work>
tOstelReturnCode Guarded(Work work) noexcept {
    try {
        return work();
    } catch (const std::exception& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", error.what());
    } catch (...) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", "Unknown exception");
    }
    return RC_RUNTIME_ERROR;
}

template <std::size_t N>
std::string Text(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

template <std::size_t N>
void SetText(char (&field)[N], const std::string& text) {
    std::strncpy(field, text.c_str(), N - 1);
    field[N - 1] = '\0';
}

// An array of the caller's record; null when there is no memory for it, whatever the count.
template <typename T>
T* NewArray(std::size_t count) noexcept {
    try {
        return new T[count];
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

template <typename T>
void Release(T*& array, std::uint32_t& count) noexcept {
    delete[] array;
    array = nullptr;
    count = 0;
}

template <typename T>
void Allocate(T*& array, std::uint32_t& count, std::size_t wanted) noexcept {
    Release(array, count);
    array = NewArray<T>(wanted);
    count = array == nullptr ? 0 : static_cast<std::uint32_t>(wanted);
}

template <typename T>
void AllocateOrThrow(T*& array, std::uint32_t& count, std::size_t wanted) {
    Allocate(array, count, wanted);
    if (array == nullptr) {
        throw std::bad_alloc();
    }
}

inline void Refill(tOstelAppLibParamArray& array, const TParams& list) {
    AllocateOrThrow(array.params, array.count, list.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        SetText(array.params[i].name, list[i].name);
        SetText(array.params[i].value, list[i].value);
    }
}

}  // namespace ostel_app_lib

#endif
