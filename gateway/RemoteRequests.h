#ifndef REMOTE_REQUESTS_H
#define REMOTE_REQUESTS_H

#include <functional>
#include <map>
#include <string>

#include "Dispatcher.h"
#include "SharedFiles.h"
#include "Subscriptions.h"

// Answers the requests of other units.
class TRemoteRequests {
public:
    // Broadcasts an event on this unit's bus. Throws std::runtime_error.
    using TSendEvent = std::function<void(const std::string& name, const std::string& data)>;

    TRemoteRequests(TDispatcher& dispatcher, TSubscriptions& subscriptions,
                    const TSharedFiles& files, TSendEvent sendEvent);

    // The framed answer, whose "STATUS" is "OK" or the name of the code of the failure.
    std::string Answer(const std::string& request, const std::string& peerAddress);

private:
    struct TContext {
        const std::string& text;
        const TOstelJsonObject& request;
        const std::string& peerAddress;
        TOstelJsonObject& reply;
        std::string& binary;
    };
    using TRequest = tOstelReturnCode (TRemoteRequests::*)(TContext& context);

    static const std::map<std::string, TRequest>& Requests();

    static tOstelReturnCode Safely(const std::function<tOstelReturnCode()>& serve);
    tOstelReturnCode Serve(TContext& context);
    tOstelReturnCode GetParam(TContext& context);
    tOstelReturnCode SetParam(TContext& context);
    tOstelReturnCode Commit(TContext& context);
    tOstelReturnCode GetFile(TContext& context);
    tOstelReturnCode SendEvent(TContext& context);
    tOstelReturnCode Subscribe(TContext& context);
    tOstelReturnCode Unsubscribe(TContext& context);

    tOstelReturnCode Dispatch(const std::string& type, const std::string& request,
                              TOstelJsonObject& reply);

    TDispatcher& m_Dispatcher;
    TSubscriptions& m_Subscriptions;
    const TSharedFiles& m_Files;
    TSendEvent m_SendEvent;
};

#endif
