#ifndef T_OSTEL_EVENT_LISTENER_H
#define T_OSTEL_EVENT_LISTENER_H

#include <map>
#include <mutex>
#include <set>
#include <string>

#include "IOstelCpeClientStateObserver.h"
#include "IOstelDataModelChangeObserver.h"
#include "IOstelObserver.h"
#include "OstelApi.h"
#include "TOstelCommon.h"
#include "TOstelIpc.h"

// Decodes the platform's events and passes them on to the observers that applications register.
//
// Observers are called on the IPC worker thread, in the order of their addresses, with the
// listener's one lock held: an observer must not add or remove observers of the same listener from
// inside its notification. Observers are not owned: remove them before they are destroyed. A null
// is logged and not added.
//
// The order of the virtual operations and of the members is part of the binary interface.
class OSTEL_API TOstelEventListener : public IOstelIpcEventListener, public TOstelCommon {
public:
    // What is done with the events of one name.
    class OSTEL_API IEventHandler {
    public:
        virtual ~IEventHandler() = default;
        virtual void HandleEvent(const std::string& name, const std::string& data) = 0;
    };

    TOstelEventListener();
    TOstelEventListener(const TOstelEventListener&) = delete;
    TOstelEventListener& operator=(const TOstelEventListener&) = delete;

    // Hands the event to the handler of its name; events without one are dropped.
    void OnEvent(const std::string& name, const std::string& data) override;
    ~TOstelEventListener() override;
    virtual void AddObserver(IOstelObserver* observer);
    virtual void RemoveObserver(IOstelObserver* observer);
    virtual void OnOstelEvent(const std::string& name, const std::string& data);
    virtual void AddCpeClientStateObserver(IOstelCpeClientStateObserver* observer);
    virtual void RemoveCpeClientStateObserver(IOstelCpeClientStateObserver* observer);
    virtual void OnCpeClientStateChange(const std::string& name, const std::string& data);
    virtual void AddDataModelChangeObserver(IOstelDataModelChangeObserver* observer);
    virtual void RemoveDataModelChangeObserver(IOstelDataModelChangeObserver* observer);
    virtual void OnDataModelChange(const std::string& name, const std::string& data);
    virtual void NotifyObservers(const std::string& name, const std::string& data);
    virtual void NotifyCpeClientStateObservers(
        IOstelCpeClientStateObserver::TOstelCpeClientState state, const std::string& macAddress,
        const std::string& hostName);
    virtual void NotifyDataModelChangeObservers(const std::string& name, const std::string& value);

    // Replaces the handler of the name, if it has one. Takes no lock: call it before events flow.
    // The handler is not owned.
    void AddEventHandler(const std::string& name, IEventHandler& handler);

private:
    class TEventHandler : public IEventHandler {
    public:
        explicit TEventHandler(TOstelEventListener* owner) : m_Owner(owner) {}
        void HandleEvent(const std::string& name, const std::string& data) override;

    private:
        TOstelEventListener* m_Owner;
    };

    class TCpeClientStateChangeHandler : public IEventHandler {
    public:
        explicit TCpeClientStateChangeHandler(TOstelEventListener* owner) : m_Owner(owner) {}
        void HandleEvent(const std::string& name, const std::string& data) override;

    private:
        TOstelEventListener* m_Owner;
    };

    class TDataModelChangeHandler : public IEventHandler {
    public:
        explicit TDataModelChangeHandler(TOstelEventListener* owner) : m_Owner(owner) {}
        void HandleEvent(const std::string& name, const std::string& data) override;

    private:
        TOstelEventListener* m_Owner;
    };

protected:
    std::mutex m_ObserverMutex;

private:
    TEventHandler m_EventHandler;
    TCpeClientStateChangeHandler m_CpeClientStateChangeHandler;
    TDataModelChangeHandler m_DataModelChangeHandler;
    std::map<std::string, IEventHandler*> m_EventHandlers;
    std::set<IOstelObserver*> m_Observers;
    std::set<IOstelCpeClientStateObserver*> m_CpeClientStateObservers;
    std::set<IOstelDataModelChangeObserver*> m_DataModelChangeObservers;
};

#endif
