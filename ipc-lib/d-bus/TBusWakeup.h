// Internal, not installed: waiting for a bus connection's input outside of the bus library. While a
// thread waits inside of it, the library neither writes what other threads send on the connection
// nor lets anybody end the wait.
#ifndef T_BUS_WAKEUP_H
#define T_BUS_WAKEUP_H

#include <dbus/dbus.h>

// Any thread may use one object at any time.
class TBusWakeup {
public:
    TBusWakeup();
    TBusWakeup(const TBusWakeup&) = delete;
    TBusWakeup& operator=(const TBusWakeup&) = delete;
    ~TBusWakeup();

    // Returns when the connection's socket has something to read, or takes what is left to write,
    // after Wake, or after the timeout; -1 is none. A null or lost connection has nothing, so that
    // its loop does not spin. True when it was woken.
    bool WaitForInput(DBusConnection* connection, int timeoutMs) const;

    // Ends every wait, present and future, until Reset.
    void Wake() const;
    void Reset() const;

private:
    int m_Event;
};

#endif
