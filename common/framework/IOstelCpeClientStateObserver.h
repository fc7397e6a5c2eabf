#ifndef I_OSTEL_CPE_CLIENT_STATE_OBSERVER_H
#define I_OSTEL_CPE_CLIENT_STATE_OBSERVER_H

#include <string>

#include "OstelApi.h"

// Told when a client device on the LAN comes, goes or is turned away. Called on the IPC worker
// thread with the listener's lock held: do not add or remove observers from inside a notification.
class OSTEL_API IOstelCpeClientStateObserver {
public:
    // The values of tOstelAppClientDeviceState, in its order.
    enum TOstelCpeClientState {
        CONNECTED = 0,
        RECONNECTED = 1,
        DISCONNECTED = 2,
        UNAUTH_ATTEMPT = 3,
        BLOCKED_ATTEMPT = 4
    };

    virtual ~IOstelCpeClientStateObserver() = default;
    // The MAC address comes before the host name; applications rely on this order.
    virtual void OnCpeClientStateChanged(TOstelCpeClientState state, const std::string& macAddress,
                                         const std::string& hostName) = 0;
};

#endif
