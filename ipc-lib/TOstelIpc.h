#ifndef T_OSTEL_IPC_H
#define T_OSTEL_IPC_H

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>

#include "OstelApi.h"

// Told of an event; called on an IPC worker thread.
class OSTEL_API IOstelIpcEventListener {
public:
    virtual void OnEvent(const std::string& eventName, const std::string& eventData) = 0;
    virtual ~IOstelIpcEventListener() = default;
};

// Answers a method call; called on an IPC worker thread. The result goes back with the reply:
// 0 is success.
class OSTEL_API IOstelIpcMethodHandler {
public:
    virtual int OnMethodCall(const std::string& methodName, const std::string& methodData,
                             std::string& reply) = 0;
    virtual ~IOstelIpcMethodHandler() = default;
};

// Method calls, method handlers and events between the applications of a device, whatever carries
// them. Failures of the transport are thrown as std::runtime_error.
//
// Registrations may come from any thread, from inside a callback too: each registry is held by a
// recursive mutex while its callbacks run. The table of method servers has no lock and is meant to
// be filled before calls are made from several threads. Listeners and handlers are not owned:
// remove them before they are destroyed. A null listener is logged and not added; a null handler
// counts as none.
//
// A second Run starts a further set of workers. Stop waits until all workers have left, except from
// inside a callback, where it only asks them to. A callback must not delete the object.
//
// The order of the virtual operations and of the members is part of the binary interface.
class OSTEL_API TOstelIpc : public IOstelIpcEventListener, public IOstelIpcMethodHandler {
public:
    // Raised in monitor mode, with the application's id as the event data.
    static const std::string ON_APP_CONNECTED_EVENT;
    static const std::string ON_APP_DISCONNECTED_EVENT;

    struct TOstelIpcSettings {
        std::int32_t threads = 1;    // worker threads that Run starts
        std::uint32_t timeout = 60;  // of a method call, in seconds
        bool monitor = false;        // watch applications come and go instead of serving
    };

    struct TMethodSettings {
        static constexpr std::uint32_t DEFAULT_TIMEOUT = 0xFFFFFFFFU;

        std::string serverId;                     // empty: as SetMethodServerId says
        std::uint32_t timeout = DEFAULT_TIMEOUT;  // seconds
    };

    TOstelIpc();
    TOstelIpc(const TOstelIpc&) = delete;
    TOstelIpc& operator=(const TOstelIpc&) = delete;

    void OnEvent(const std::string& eventName, const std::string& eventData) override;
    ~TOstelIpc() override;
    virtual void Init(const std::string& name);
    virtual void Run();
    // The names of the next two lack a letter; they are part of the interface as they are.
    virtual void AddEventLstener(IOstelIpcEventListener* listener, const std::string& eventName);
    virtual void RemoveEventLstener(IOstelIpcEventListener* listener, const std::string& eventName);
    virtual void AddMethodHandler(const std::string& methodName, IOstelIpcMethodHandler* handler);
    virtual void RemoveMethodHandler(const std::string& methodName);
    virtual void SendEvent(const std::string& eventName, const std::string& eventData) = 0;
    virtual int CallMethod(const std::string& methodName, const std::string& methodData,
                           std::string& reply) = 0;
    virtual int CallMethod(const std::string& methodName, const std::string& methodData,
                           std::string& reply, TMethodSettings& settings) = 0;
    int OnMethodCall(const std::string& methodName, const std::string& methodData,
                     std::string& reply) override;
    virtual void Stop();
    virtual void MainLoop() = 0;

    void Configure(const TOstelIpcSettings& settings);
    void GetSettings(TOstelIpcSettings& settings) const;
    void SetMethodServerId(const std::string& methodName, const std::string& serverId);
    void GetMethodServerId(const std::string& methodName, std::string& serverId) const;

protected:
    // Whether the caller is inside one of this object's callbacks.
    bool IsServedByThisThread() const;

    // Settings are atomic since an application may configure while workers and calls read them.
    std::atomic<bool> m_Running;
    std::atomic<bool> m_Monitor;
    std::string m_Name;
    std::atomic<std::int32_t> m_TimeoutMs;
    std::atomic<std::int32_t> m_Threads;
    std::list<std::thread> m_Workers;
    std::recursive_mutex m_ListenerMutex;
    std::unordered_map<std::string, std::set<IOstelIpcEventListener*>> m_Listeners;
    std::recursive_mutex m_HandlerMutex;
    std::unordered_map<std::string, IOstelIpcMethodHandler*> m_Handlers;
    std::unordered_map<std::string, std::string> m_ServerIds;
};

// The process's one instance, made on the first call and destroyed at exit.
OSTEL_API TOstelIpc* getOstelIpcInstance();

// A further instance, with connections of its own; the caller deletes it.
OSTEL_API TOstelIpc* newOstelIpcInstance();

#endif
