#include "TOstelEventListener.h"

#include <stdexcept>
#include <string>

#include "OstelLog.h"
#include "OstelObservers.h"
#include "TOstelDataMapper.h"
#include "TOstelJsonObject.h"

namespace {

// Log collectors find the trace of general events by this line number.
constexpr int EVENT_TRACE_LINE = 69;

std::string Text(const TOstelJsonObject& payload, const std::string& name) {
    return payload.GetPropertyValue<std::string>(name, "");
}

void LogError(const std::runtime_error& error) {
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", error.what());
}

}  // namespace

void TOstelEventListener::TEventHandler::HandleEvent(const std::string& name,
                                                     const std::string& data) {
    m_Owner->OnOstelEvent(name, data);
}

void TOstelEventListener::TCpeClientStateChangeHandler::HandleEvent(const std::string& name,
                                                                    const std::string& data) {
    m_Owner->OnCpeClientStateChange(name, data);
}

void TOstelEventListener::TDataModelChangeHandler::HandleEvent(const std::string& name,
                                                               const std::string& data) {
    m_Owner->OnDataModelChange(name, data);
}

TOstelEventListener::TOstelEventListener()
    : m_EventHandler(this), m_CpeClientStateChangeHandler(this), m_DataModelChangeHandler(this) {
    try {
        AddEventHandler(m_DataMapper->MapEnumToString(EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT),
                        m_EventHandler);
        for (const tOstelPltEventType type :
             {EVENT_TYPE_CLIENT_CONNECTED, EVENT_TYPE_CLIENT_RECONNECTED,
              EVENT_TYPE_CLIENT_DISCONNECTED, EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT,
              EVENT_TYPE_CLIENT_BLOCKED_ATTEMPT}) {
            AddEventHandler(m_DataMapper->MapEnumToString(type), m_CpeClientStateChangeHandler);
        }
        AddEventHandler(m_DataMapper->MapEnumToString(EVENT_TYPE_PARAM_CHANGED),
                        m_DataModelChangeHandler);
    } catch (const std::runtime_error& error) {
        LogError(error);
    }
}

TOstelEventListener::~TOstelEventListener() = default;

void TOstelEventListener::AddEventHandler(const std::string& name, IEventHandler& handler) {
    m_EventHandlers[name] = &handler;
}

void TOstelEventListener::OnEvent(const std::string& name, const std::string& data) {
    const auto found = m_EventHandlers.find(name);
    if (found != m_EventHandlers.end()) {
        found->second->HandleEvent(name, data);
    }
}

void TOstelEventListener::AddObserver(IOstelObserver* observer) {
    OstelObservers::Add(m_Observers, observer, m_ObserverMutex);
}

void TOstelEventListener::RemoveObserver(IOstelObserver* observer) {
    OstelObservers::Remove(m_Observers, observer, m_ObserverMutex);
}

void TOstelEventListener::OnOstelEvent(const std::string& name, const std::string& data) {
    try {
        OSTEL_LOG_AT(ZT_LOG_LEVEL_DEBUG, EVENT_TRACE_LINE, "%s - %s", name.c_str(), data.c_str());
        // Never destroyed: the worker may bring events while the process exits.
        static const auto* const installAttempt =
            new std::string(m_DataMapper->MapEnumToString(EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT));
        TOstelJsonObject payload;
        if (name != *installAttempt || !payload.DecodeFromString(data)) {
            return;
        }
        NotifyObservers(name, Text(payload, "URL"));
    } catch (const std::runtime_error& error) {
        LogError(error);
    }
}

void TOstelEventListener::AddCpeClientStateObserver(IOstelCpeClientStateObserver* observer) {
    OstelObservers::Add(m_CpeClientStateObservers, observer, m_ObserverMutex);
}

void TOstelEventListener::RemoveCpeClientStateObserver(IOstelCpeClientStateObserver* observer) {
    OstelObservers::Remove(m_CpeClientStateObservers, observer, m_ObserverMutex);
}

void TOstelEventListener::OnCpeClientStateChange(const std::string& name, const std::string& data) {
    try {
        TOstelJsonObject payload;
        if (!payload.DecodeFromString(data)) {
            return;
        }
        const auto type = m_DataMapper->MapStringToEnum<tOstelPltEventType>(name);
        if (type > EVENT_TYPE_CLIENT_BLOCKED_ATTEMPT) {
            return;
        }
        const std::string hostName = Text(payload, "HOST_NAME");
        const std::string macAddress = Text(payload, "MAC_ADDRESS");
        // The first five event types and the client states share their values.
        NotifyCpeClientStateObservers(
            static_cast<IOstelCpeClientStateObserver::TOstelCpeClientState>(type), macAddress,
            hostName);
    } catch (const std::runtime_error& error) {
        LogError(error);
    }
}

void TOstelEventListener::AddDataModelChangeObserver(IOstelDataModelChangeObserver* observer) {
    OstelObservers::Add(m_DataModelChangeObservers, observer, m_ObserverMutex);
}

void TOstelEventListener::RemoveDataModelChangeObserver(IOstelDataModelChangeObserver* observer) {
    OstelObservers::Remove(m_DataModelChangeObservers, observer, m_ObserverMutex);
}

void TOstelEventListener::OnDataModelChange(const std::string&, const std::string& data) {
    TOstelJsonObject payload;
    if (!payload.DecodeFromString(data)) {
        return;
    }
    const std::string value = Text(payload, "DATA_MODEL_VALUE");
    const std::string name = Text(payload, "DATA_MODEL_NAME");
    NotifyDataModelChangeObservers(name, value);
}

void TOstelEventListener::NotifyObservers(const std::string& name, const std::string& data) {
    const std::lock_guard<std::mutex> lock(m_ObserverMutex);
    for (IOstelObserver* observer : m_Observers) {
        observer->OnEvent(name, data);
    }
}

void TOstelEventListener::NotifyCpeClientStateObservers(
    IOstelCpeClientStateObserver::TOstelCpeClientState state, const std::string& macAddress,
    const std::string& hostName) {
    const std::lock_guard<std::mutex> lock(m_ObserverMutex);
    for (IOstelCpeClientStateObserver* observer : m_CpeClientStateObservers) {
        observer->OnCpeClientStateChanged(state, macAddress, hostName);
    }
}

void TOstelEventListener::NotifyDataModelChangeObservers(const std::string& name,
                                                         const std::string& value) {
    const std::lock_guard<std::mutex> lock(m_ObserverMutex);
    for (IOstelDataModelChangeObserver* observer : m_DataModelChangeObservers) {
        observer->OnDataModelParamChanged(name, value);
    }
}
