// Internal, not installed: what the workers of the clock share.
#ifndef OSTEL_CLOCK_WORKER_H
#define OSTEL_CLOCK_WORKER_H

#include <exception>

#include "zt_logging.h"

namespace OstelClockWorker {

inline void LogError(const char* text) {
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "[TOstelClock] %s.", text);
}

// Nobody is above a worker to take an exception, whether an observer's or the library's own.
template <typename Work>
void RunGuarded(Work work) {
    try {
        work();
    } catch (const std::exception& e) {
        LogError(e.what());
    } catch (...) {
        LogError("Unknown exception");
    }
}

}  // namespace OstelClockWorker

#endif
