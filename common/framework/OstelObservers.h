// Internal, not installed: the one way in which observers are added to and removed from their sets.
#ifndef OSTEL_OBSERVERS_H
#define OSTEL_OBSERVERS_H

#include <mutex>
#include <set>

#include "zt_logging.h"

namespace OstelObservers {

// A null observer would end the process at the next notification, far from who added it.
template <typename TObserver>
void Add(std::set<TObserver*>& observers, TObserver* observer, std::mutex& mutex) {
    if (observer == nullptr) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", "A null observer is not added.");
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    observers.insert(observer);
}

template <typename TObserver>
void Remove(std::set<TObserver*>& observers, TObserver* observer, std::mutex& mutex) {
    const std::lock_guard<std::mutex> lock(mutex);
    observers.erase(observer);
}

}  // namespace OstelObservers

#endif
