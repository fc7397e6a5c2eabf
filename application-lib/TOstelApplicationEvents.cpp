// Events, the applications that come and go, and the observers of both.
#include <stdexcept>

#include "OstelDocuments.h"
#include "OstelObservers.h"
#include "TOstelApplicationHandlers.h"

void TOstelApplication::TAppStateChangeHandler::HandleEvent(const std::string& name,
                                                            const std::string& data) {
    if (auto* const application = dynamic_cast<TOstelApplication*>(m_Listener)) {
        application->OnAppStateChange(name, data);
    }
}

void TOstelApplication::TRemoteDataModelChangeHandler::HandleEvent(const std::string& name,
                                                                   const std::string& data) {
    if (auto* const application = dynamic_cast<TOstelApplication*>(m_Listener)) {
        application->OnRemoteDataModelChange(name, data);
    }
}

void TOstelApplication::AddAppStateChangeObserver(IOstelAppStateObserver* observer) {
    OstelObservers::Add(m_AppStateObservers, observer, m_ObserverMutex);
}

void TOstelApplication::RemoveAppStateChangeObserver(IOstelAppStateObserver* observer) {
    OstelObservers::Remove(m_AppStateObservers, observer, m_ObserverMutex);
}

void TOstelApplication::NotifyAppStateChangeObservers(IOstelAppStateObserver::TOstelAppState state,
                                                      const std::string& appName) {
    const std::lock_guard<std::mutex> lock(m_ObserverMutex);
    for (IOstelAppStateObserver* observer : m_AppStateObservers) {
        observer->OnAppStateChanged(state, appName);
    }
}

void TOstelApplication::OnAppStateChange(const std::string& eventName,
                                         const std::string& eventData) {
    const auto state = eventName == TOstelIpc::ON_APP_CONNECTED_EVENT
                           ? IOstelAppStateObserver::APP_STATE_CONNECTED
                           : IOstelAppStateObserver::APP_STATE_DISCONNECTED;
    NotifyAppStateChangeObservers(state, eventData);
}

tOstelReturnCode TOstelApplication::IsAppActive(const std::string& appName, bool& active) {
    if (appName.empty()) {
        return RC_FAILURE;
    }
    return OstelDocuments::Attempt([&] {
        TOstelIpc::TMethodSettings settings;
        settings.serverId = appName;
        settings.timeout = 1;
        std::string reply;
        const int result = m_Ipc->CallMethod("IS_APP_ACTIVE", "", reply, settings);
        active = result == 0;
        return static_cast<tOstelReturnCode>(result);
    });
}

void TOstelApplication::SendEvent(const std::string& name, const std::string& data) {
    try {
        m_Ipc->SendEvent(name, data);
    } catch (const std::runtime_error& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", error.what());
    }
}

void TOstelApplication::OnRemoteDataModelChange(const std::string&, const std::string& eventData) {
    TOstelJsonObject payload;
    // Without a document it is a change of no parameter: all three are empty.
    payload.DecodeFromString(eventData);
    const auto serialNumber = payload.GetPropertyValue<std::string>("SERIAL_NUMBER", "");
    const auto value = payload.GetPropertyValue<std::string>("VALUE", "");
    const auto name = payload.GetPropertyValue<std::string>("NAME", "");
    NotifyDataModelChangeObserversRemote(name, value, serialNumber);
}

void TOstelApplication::NotifyDataModelChangeObserversRemote(const std::string& name,
                                                             const std::string& value,
                                                             const std::string& serialNumber) {
    const std::lock_guard<std::mutex> lock(m_ObserverMutex);
    const auto observers = m_RemoteObservers;
    for (const auto& [observer, names] : observers) {
        if (names.count(name) != 0) {
            observer->OnDataModelChangeRemote(name, value, serialNumber);
        }
    }
}
