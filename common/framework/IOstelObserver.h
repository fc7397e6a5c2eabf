#ifndef I_OSTEL_OBSERVER_H
#define I_OSTEL_OBSERVER_H

#include <string>

#include "OstelApi.h"

// Told of what concerns no client and no parameter: "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", with
// the URL of the software as data. Called on the IPC worker thread with the listener's lock held:
// do not add or remove observers from inside a notification.
class OSTEL_API IOstelObserver {
public:
    virtual ~IOstelObserver() = default;
    virtual void OnEvent(const std::string& name, const std::string& data) = 0;
};

#endif
