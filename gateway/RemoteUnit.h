#ifndef REMOTE_UNIT_H
#define REMOTE_UNIT_H

#include <string>

#include "Dispatcher.h"
#include "RemoteRequests.h"
#include "RemoteService.h"
#include "SharedFiles.h"
#include "Subscriptions.h"
#include "TOstelIpc.h"
#include "TlsSession.h"

// What other units see of this one: the service that answers them, and the changes that they have
// subscribed to.
class TRemoteUnit {
public:
    struct TSettings {
        std::string address;       // where to serve, IPv4
        std::string certificates;  // directory
        std::string files;         // directory of what may be fetched; may be empty
    };

    // Serves from now on. Throws std::runtime_error.
    TRemoteUnit(const TSettings& settings, const std::string& serialNumber, TDispatcher& dispatcher,
                TOstelIpc& ipc);
    TRemoteUnit(const TRemoteUnit&) = delete;
    TRemoteUnit& operator=(const TRemoteUnit&) = delete;
    ~TRemoteUnit();

private:
    TDispatcher& m_Dispatcher;
    TTlsContext m_Context;
    TSharedFiles m_Files;
    TSubscriptions m_Subscriptions;
    TRemoteRequests m_Requests;
    TRemoteService m_Service;
};

#endif
