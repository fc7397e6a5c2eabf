#ifndef I_OSTEL_CLOCK_OBSERVER_H
#define I_OSTEL_CLOCK_OBSERVER_H

#include "OstelApi.h"

// Told by a TOstelClock, on its worker threads. Do not set, reset, add or remove anything on the
// clock from inside a notification: whoever resets the worker waits for it. The order of the
// operations is part of the binary interface, which has no destructor.
class OSTEL_API IOstelClockObserver {
public:
    // The alarm time has come.
    virtual void OnAlarm() = 0;
    // The timer's period has elapsed.
    virtual void OnTimer() = 0;

protected:
    ~IOstelClockObserver() = default;
};

#endif
