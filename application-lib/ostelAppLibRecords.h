// Not installed: what the flat interface's functions share to fill the records of their callers.
#ifndef OSTEL_APP_LIB_RECORDS_H
#define OSTEL_APP_LIB_RECORDS_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <utility>
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

// Not cleared.
template <typename T>
std::unique_ptr<T[]> NewArray(std::size_t count) {
    return std::unique_ptr<T[]>(new T[count]);
}

// Even a buffer of no bytes holds the NUL of an empty text: a long value of size 0 is read up to
// it.
inline std::unique_ptr<char[]> NewBuffer(std::size_t size) {
    auto buffer = NewArray<char>(std::max<std::size_t>(size, 1));
    buffer[0] = '\0';
    return buffer;
}

template <typename T>
void Release(T*& array, std::uint32_t& count) noexcept {
    delete[] array;
    array = nullptr;
    count = 0;
}

// Leaves the array empty when there is no memory for the new one; the log tells why.
template <typename T>
void Allocate(T*& array, std::uint32_t& count, std::uint32_t wanted,
              std::unique_ptr<T[]> (*make)(std::size_t) = NewArray<T>) noexcept {
    Release(array, count);
    Guarded([&] {
        array = make(wanted).release();
        count = wanted;
        return RC_SUCCESS;
    });
}

// For an array that is filled already: whatever fails before leaves the record as it was.
template <typename T>
void Replace(T*& array, std::uint32_t& count, std::unique_ptr<T[]> filled,
             std::size_t size) noexcept {
    delete[] array;
    array = filled.release();
    count = static_cast<std::uint32_t>(size);
}

inline void Refill(tOstelAppLibParamArray& array, const TParams& list) {
    auto params = NewArray<tOstelAppLibParam>(list.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        SetText(params[i].name, list[i].name);
        SetText(params[i].value, list[i].value);
    }
    Replace(array.params, array.count, std::move(params), list.size());
}

}  // namespace ostel_app_lib

#endif
