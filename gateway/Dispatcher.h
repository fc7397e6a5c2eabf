#ifndef DISPATCHER_H
#define DISPATCHER_H

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "DataModel.h"
#include "Store.h"
#include "TOstelIpc.h"
#include "TOstelJsonObject.h"

// Answers the requests of applications out of the data model. Runs on IPC worker threads; one lock
// makes each request whole, the signals of a commit included, so that observers see changes in the
// order in which they became true.
class TDispatcher : public IOstelIpcMethodHandler {
public:
    // Sends an event to all applications.
    using TSend = std::function<void(const std::string& name, const std::string& data)>;

    // Told of each parameter that a commit changed, while no other request is served: it must not
    // wait for anything.
    using TOnChange = std::function<void(const std::string& name, const std::string& value)>;

    TDispatcher(TDataModel& model, TStore& store, TSend send);

    // Handles every request type that the gateway serves, on this IPC instance.
    void Register(TOstelIpc& ipc);

    // Once it has returned, the one before is called no more.
    void SetOnChange(TOnChange onChange);

    int OnMethodCall(const std::string& type, const std::string& request,
                     std::string& reply) override;

private:
    using TRequest = tOstelReturnCode (TDispatcher::*)(const TOstelJsonObject& request,
                                                       TOstelJsonObject& reply);

    static const std::map<std::string, TRequest>& Requests();

    // Parameters
    tOstelReturnCode GetParam(const TOstelJsonObject& request, TOstelJsonObject& reply);
    tOstelReturnCode SetParam(const TOstelJsonObject& request, TOstelJsonObject& reply);
    tOstelReturnCode GetParamArray(const TOstelJsonObject& request, TOstelJsonObject& reply);
    tOstelReturnCode SetParamArray(const TOstelJsonObject& request, TOstelJsonObject& reply);
    tOstelReturnCode GetLongParam(const TOstelJsonObject& request, TOstelJsonObject& reply);

    // Objects
    tOstelReturnCode GetObject(const TOstelJsonObject& request, TOstelJsonObject& reply);
    tOstelReturnCode SetObject(const TOstelJsonObject& request, TOstelJsonObject& reply);
    tOstelReturnCode GetObjectInstances(const TOstelJsonObject& request, TOstelJsonObject& reply);
    tOstelReturnCode GetObjectTree(const TOstelJsonObject& request, TOstelJsonObject& reply);
    tOstelReturnCode AddObjectInstance(const TOstelJsonObject& request, TOstelJsonObject& reply);
    tOstelReturnCode DeleteObjectInstance(const TOstelJsonObject& request, TOstelJsonObject& reply);
    tOstelReturnCode GetIndexMap(const TOstelJsonObject& request, TOstelJsonObject& reply);

    tOstelReturnCode Commit(const TOstelJsonObject& request, TOstelJsonObject& reply);

    // Appends all that the names stand for; stops at the first name that is wrong.
    tOstelReturnCode Read(const std::vector<std::string>& names, TOstelJsonObject& reply);
    // Stages all or nothing, and commits when asked to.
    tOstelReturnCode Write(const TDataModel::TValues& writes, bool commit);

    // Applies all staged writes at once. False when they could not be stored; they stay staged.
    bool CommitStaged();

    TDataModel& m_Model;
    TStore& m_Store;
    TSend m_Send;
    TOnChange m_OnChange;
    std::mutex m_Mutex;
};

#endif
