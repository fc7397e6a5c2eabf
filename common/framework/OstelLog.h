// Internal, not installed: one way to write a log line with the place it comes from.
//
// OSTEL_LOG(level, format, ...) writes "[%s:%d][%s]: " + format, filled with the source's path from
// the project's root without extension, the line and the bare function name. The format is a
// literal and is checked by the compiler; a user's text only ever fills a "%s".
#ifndef OSTEL_LOG_H
#define OSTEL_LOG_H

#include <array>
#include <cstddef>

#include "zt_logging.h"

namespace OstelLog {

template <std::size_t N>
constexpr std::array<char, N> WithoutExtension(const char (&file)[N]) {
    std::size_t end = N - 1;
    for (std::size_t i = 0; i < N; ++i) {
        if (file[i] == '.') {
            end = i;
        }
    }
    std::array<char, N> path{};
    for (std::size_t i = 0; i < end; ++i) {
        path[i] = file[i];
    }
    return path;
}

}  // namespace OstelLog

#define OSTEL_LOG(level, format, ...) OSTEL_LOG_AT(level, __LINE__, format, __VA_ARGS__)

// For the lines of another function, or of a class whose sources are several: readers of the log
// know them by the first one's path and the operation's name.
#define OSTEL_LOG_AS(level, module, function, format, ...) \
    ztLogging_log(level, "[%s:%d][%s]: " format, module, __LINE__, function, __VA_ARGS__)

// For the lines whose number is part of the message and does not follow the source.
#define OSTEL_LOG_AT(level, line, format, ...)                                           \
    do {                                                                                 \
        static constexpr auto ostelModule = OstelLog::WithoutExtension(__FILE__);        \
        ztLogging_log(level, "[%s:%d][%s]: " format, ostelModule.data(), line, __func__, \
                      __VA_ARGS__);                                                      \
    } while (false)

#endif
