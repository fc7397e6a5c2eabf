#ifndef I_OSTEL_APP_STATE_OBSERVER_H
#define I_OSTEL_APP_STATE_OBSERVER_H

#include <string>

#include "OstelApi.h"

// Told when another application appears on the bus or leaves it. Called on the IPC worker thread
// with the listener's lock held: do not add or remove observers from inside a notification.
class OSTEL_API IOstelAppStateObserver {
public:
    enum TOstelAppState { APP_STATE_CONNECTED = 0, APP_STATE_DISCONNECTED = 1 };

    virtual ~IOstelAppStateObserver() = default;
    virtual void OnAppStateChanged(TOstelAppState state, const std::string& appName) = 0;
};

#endif
