#ifndef I_OSTEL_SYSTEM_TIME_OBSERVER_H
#define I_OSTEL_SYSTEM_TIME_OBSERVER_H

#include "OstelApi.h"

// Told by a TOstelClock, on its monitor thread. The binary interface has no destructor.
class OSTEL_API IOstelSystemTimeObserver {
public:
    // The system's real-time clock was set.
    virtual void OnSystemTimeChanged() = 0;

protected:
    ~IOstelSystemTimeObserver() = default;
};

#endif
