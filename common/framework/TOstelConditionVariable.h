#ifndef T_OSTEL_CONDITION_VARIABLE_H
#define T_OSTEL_CONDITION_VARIABLE_H

#include <pthread.h>

#include "OstelApi.h"

// A wait that another thread can end. Time is that of the monotonic clock: setting the system's
// clock neither shortens nor stretches a wait.
//
//     TOstelConditionVariable stop;
//     std::thread worker([&stop] {
//         while (stop.WaitFor(1.5)) {
//             MeasureOnceMore();
//         }
//     });
//     ...
//     stop.Notify();
//     worker.join();
//
// It remembers nothing: a notification while nobody waits is lost (above, the worker then goes on),
// and a wait may end as woken without one. All operations may be called from any thread; the object
// must outlive every wait. The order of the members is part of the binary interface.
class OSTEL_API TOstelConditionVariable {
public:
    TOstelConditionVariable();
    TOstelConditionVariable(const TOstelConditionVariable&) = delete;
    TOstelConditionVariable& operator=(const TOstelConditionVariable&) = delete;
    virtual ~TOstelConditionVariable();

    // True when the time is over, false when woken. 0 is over at once. A time beyond the platform's
    // clock lasts as long as that clock counts; what is no number is woken at once.
    bool WaitFor(double seconds);

    // Wakes one waiter.
    void Notify();

private:
    pthread_mutex_t m_Mutex;
    pthread_cond_t m_Condition;
};

#endif
