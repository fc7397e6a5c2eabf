#ifndef T_OSTEL_D_BUS_H
#define T_OSTEL_D_BUS_H

#include <dbus/dbus.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "OstelApi.h"
#include "TOstelIpc.h"

class TBusPump;
class TBusWakeup;

// TOstelIpc over the D-Bus system bus, on two private connections. The server connection owns the
// application's bus name and is served by the worker threads; the client connection carries
// outgoing calls and events, sent from the caller's thread.
//
// Any thread may call and send at any time; none is held up by what another waits for. Init,
// Connect and Disconnect are for start-up and shut-down, not for when calls are in flight.
//
// Names and texts that the bus does not allow are refused with a std::runtime_error, as are texts
// of more than about 32 MiB. Losing the bus does not end the process: what waits for a reply then
// fails at once, and so do all calls and events from then on.
//
// The order of the members is part of the binary interface.
class OSTEL_API TOstelDBus : public TOstelIpc {
public:
    // Owns one reference to a message, which is never null: making one of null throws.
    class OSTEL_API TBusMessage {
    public:
        explicit TBusMessage(DBusMessage* message);
        TBusMessage(const TBusMessage&) = delete;
        TBusMessage& operator=(const TBusMessage&) = delete;
        TBusMessage& operator=(DBusMessage* message);
        virtual ~TBusMessage();

        DBusMessage* operator()() const { return m_Message; }
        int GetType() const;

    private:
        DBusMessage* m_Message;
    };

    // Receives an error of the bus library and turns it into an exception.
    class OSTEL_API TBusError {
    public:
        TBusError();
        TBusError(const TBusError&) = delete;
        TBusError& operator=(const TBusError&) = delete;
        ~TBusError();

        DBusError* operator()() { return &m_Error; }
        // Logs and throws when the error is set.
        void Check(const std::string& context) const;

    private:
        DBusError m_Error;
    };

    TOstelDBus();
    ~TOstelDBus() override;

    void Init(const std::string& name) override;
    void Run() override;
    void SendEvent(const std::string& eventName, const std::string& eventData) override;
    int CallMethod(const std::string& methodName, const std::string& methodData,
                   std::string& reply) override;
    int CallMethod(const std::string& methodName, const std::string& methodData, std::string& reply,
                   TMethodSettings& settings) override;
    void Stop() override;
    void MainLoop() override;

    void Connect();
    void Disconnect();

protected:
    DBusConnection* CreateConnection(DBusBusType busType);
    void RegisterBusName();
    void ReleaseBusName();
    void BecomeMonitor();
    void MessageHandler(DBusMessage* message);
    void MonitorHandler(DBusMessage* message);
    void Reply(DBusMessage* call, const std::string& reply, int result);
    static void GetMessageValue(DBusMessage* message, std::string& value, int* result);

private:
    static DBusHandlerResult Filter(DBusConnection* connection, DBusMessage* message, void* self);

    void DispatchMethodCall(DBusMessage* call, const std::string& name, const std::string& data);
    static void LogErrorMessage(DBusMessage* message);
    static int TakeReply(const TBusMessage& message, std::string& reply);
    bool SendStopCall();
    void StartWorkers();
    void TakeName(const std::string& name);
    bool MayOwnNames() const;
    void OpenConnections();
    void CloseConnections();

    std::atomic<DBusConnection*> m_ServerConnection;
    DBusConnection* m_ClientConnection;
    std::string m_BusName;
    std::string m_InterfaceName;
    std::string m_ObjectPath;
    std::atomic<bool> m_Connected;
    std::atomic<std::int32_t> m_DispatchTimeoutMs;

    std::mutex m_ConnectMutex;
    std::atomic<bool> m_Monitoring;  // the server connection is a monitor
    std::atomic<bool> m_OwnsName;
    std::shared_ptr<TBusWakeup> m_WorkerWakeup;  // each worker keeps it alive
    std::unique_ptr<TBusPump> m_ClientPump;
    // Closed inside of a callback, and kept for the workers that are still using them.
    std::vector<DBusConnection*> m_ClosedConnections;
};

#endif
