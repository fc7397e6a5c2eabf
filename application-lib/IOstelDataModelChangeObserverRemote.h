#ifndef I_OSTEL_DATA_MODEL_CHANGE_OBSERVER_REMOTE_H
#define I_OSTEL_DATA_MODEL_CHANGE_OBSERVER_REMOTE_H

#include <string>

#include "OstelApi.h"

// Told of subscribed parameters that change on another unit, with that unit's serial number. Called
// on the IPC worker thread with the listener's lock held: do not add or remove observers from
// inside a notification.
class OSTEL_API IOstelDataModelChangeObserverRemote {
public:
    virtual ~IOstelDataModelChangeObserverRemote() = default;
    virtual void OnDataModelChangeRemote(const std::string& name, const std::string& value,
                                         const std::string& serialNumber) = 0;
};

#endif
