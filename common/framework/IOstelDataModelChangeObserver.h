#ifndef I_OSTEL_DATA_MODEL_CHANGE_OBSERVER_H
#define I_OSTEL_DATA_MODEL_CHANGE_OBSERVER_H

#include <string>

#include "OstelApi.h"

// Told of every parameter of the data model that changes. Called on the IPC worker thread with the
// listener's lock held: do not add or remove observers from inside a notification.
class OSTEL_API IOstelDataModelChangeObserver {
public:
    virtual ~IOstelDataModelChangeObserver() = default;
    // The full parameter name and its new value.
    virtual void OnDataModelParamChanged(const std::string& name, const std::string& value) = 0;
};

#endif
