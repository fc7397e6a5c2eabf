// The life of the two connections, the names and the workers. What arrives on the server connection
// is in TOstelDBusIncoming.cpp, what is sent over the client connection in TOstelDBusOutgoing.cpp.
#include "TOstelDBus.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

#include "OstelBusMessages.h"
#include "OstelBusText.h"
#include "OstelLog.h"
#include "TBusPump.h"
#include "TBusWakeup.h"

using namespace OstelBusMessages;

namespace {

const char* const CLIENT_NAME_SUFFIX = "_CLIENT";
constexpr unsigned int NAME_FLAGS =
    DBUS_NAME_FLAG_ALLOW_REPLACEMENT | DBUS_NAME_FLAG_REPLACE_EXISTING;

// A name that the bus does not allow makes no message.
void ThrowUnlessAllowed(bool allowed) {
    if (!allowed) {
        const TOstelDBus::TBusMessage none(nullptr);
    }
}

void Close(DBusConnection* connection) {
    if (connection != nullptr) {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
    }
}

// The object holds two references. The second keeps what workers are using in place, and is given
// back when there are none.
void CloseForGood(DBusConnection* connection) {
    Close(connection);
    if (connection != nullptr) {
        dbus_connection_unref(connection);
    }
}

struct TConnectionCloser {
    void operator()(DBusConnection* connection) const { CloseForGood(connection); }
};

}  // namespace

TOstelIpc* getOstelIpcInstance() {
    static TOstelDBus instance;
    return &instance;
}

TOstelIpc* newOstelIpcInstance() {
    return new TOstelDBus;
}

TOstelDBus::TOstelDBus()
    : m_ServerConnection(nullptr),
      m_ClientConnection(nullptr),
      m_BusName(BUS_NAME_PREFIX),
      m_InterfaceName(INTERFACE_NAME),
      m_ObjectPath(OBJECT_PATH_PREFIX),
      m_Connected(false),
      m_DispatchTimeoutMs(1000),
      m_Monitoring(false),
      m_OwnsName(false),
      m_WorkerWakeup(std::make_shared<TBusWakeup>()),
      m_ClientPump(std::make_unique<TBusPump>()) {
    dbus_threads_init_default();
}

TOstelDBus::~TOstelDBus() {
    TOstelDBus::Stop();
    // A callback that ends the process destroys the object under its workers: what they use is left
    // to the end of the process.
    if (!IsServedByThisThread()) {
        CloseConnections();
    }
}

DBusConnection* TOstelDBus::CreateConnection(DBusBusType busType) {
    TBusError error;
    DBusConnection* const connection = dbus_bus_get_private(busType, error());
    error.Check("dbus_bus_get_private");
    dbus_connection_ref(connection);
    dbus_connection_set_exit_on_disconnect(connection, false);
    return connection;
}

void TOstelDBus::Connect() {
    // Two threads may come here with their first calls.
    const std::lock_guard<std::mutex> lock(m_ConnectMutex);
    if (!m_Connected) {
        OpenConnections();
    }
}

void TOstelDBus::OpenConnections() {
    std::unique_ptr<DBusConnection, TConnectionCloser> server(CreateConnection(DBUS_BUS_SYSTEM));
    DBusConnection* const client = CreateConnection(DBUS_BUS_SYSTEM);
    {
        const auto held = m_ClientPump->Hold();
        m_ClientConnection = client;
        m_ClientPump->Watch(client);
    }
    m_BusName += std::to_string(getpid());
    m_ObjectPath += std::to_string(getpid());
    TBusError error;
    const bool filtered =
        dbus_connection_add_filter(server.get(), &TOstelDBus::Filter, this, nullptr);
    if (filtered) {
        const std::string rule = "interface='" + m_InterfaceName + "'";
        dbus_bus_add_match(server.get(), rule.c_str(), error());
    }
    // Other threads use the connections from here on, so it comes after what sets them up.
    m_ServerConnection = server.release();
    m_Connected = true;
    if (!filtered) {
        Fail("Can't add ServerConnection filter.");
    }
    error.Check("dbus_bus_add_match");
}

void TOstelDBus::Disconnect() {
    // Workers use the server connection; a callback cannot wait until they do not.
    const bool wasRunning = m_Running && !IsServedByThisThread();
    if (wasRunning) {
        Stop();
    }
    CloseConnections();
    if (wasRunning) {
        StartWorkers();
    }
}

void TOstelDBus::CloseConnections() {
    const std::lock_guard<std::mutex> lock(m_ConnectMutex);
    const auto held = m_ClientPump->Hold();
    DBusConnection* const server = m_ServerConnection.exchange(nullptr);
    Close(server);
    if (server != nullptr) {
        m_ClosedConnections.push_back(server);
    }
    if (!IsServedByThisThread()) {
        std::for_each(m_ClosedConnections.begin(), m_ClosedConnections.end(),
                      &dbus_connection_unref);
        m_ClosedConnections.clear();
    }
    CloseForGood(std::exchange(m_ClientConnection, nullptr));
    m_ClientPump->Interrupt();
    m_Connected = false;
    m_Monitoring = false;
    m_OwnsName = false;
}

void TOstelDBus::Init(const std::string& name) {
    OSTEL_LOG(ZT_LOG_LEVEL_DEBUG, "%s", name.c_str());
    if (name == m_Name) {
        ztLogging_log(ZT_LOG_LEVEL_WARNING, "The same ID (%s), do nothing.", name.c_str());
        return;
    }
    // Before the old name is given up, which would leave the application without any.
    ThrowUnlessAllowed(OstelBusText::IsBusName(BUS_NAME_PREFIX + name) &&
                       OstelBusText::IsObjectPath(OBJECT_PATH_PREFIX + name));
    TOstelIpc::Init(name);
    const bool wasRunning = m_Running;
    if (wasRunning) {
        Stop();
    }
    try {
        TakeName(name);
    } catch (...) {
        // No name is owned now, and a further attempt must not pass for the same ID.
        TOstelIpc::Init("");
        if (wasRunning) {
            StartWorkers();
        }
        throw;
    }
    if (wasRunning) {
        Run();
    }
}

void TOstelDBus::TakeName(const std::string& name) {
    if (m_Connected) {
        ReleaseBusName();
    } else {
        Connect();
    }
    m_BusName = BUS_NAME_PREFIX + name;
    m_ObjectPath = OBJECT_PATH_PREFIX + name;
    OSTEL_LOG_AS(ZT_LOG_LEVEL_DEBUG, MODULE, "Init", "'%s' '%s' '%s'", m_BusName.c_str(),
                 m_InterfaceName.c_str(), m_ObjectPath.c_str());
    if (m_Connected) {
        RegisterBusName();
    }
}

// A monitor owns no names, and the bus ends its connection when it sends anything.
bool TOstelDBus::MayOwnNames() const {
    return m_Connected && !m_Monitoring;
}

void TOstelDBus::RegisterBusName() {
    if (!MayOwnNames()) {
        return;
    }
    ThrowUnlessAllowed(OstelBusText::IsBusName(m_BusName));
    TBusError error;
    const int result =
        dbus_bus_request_name(m_ServerConnection, m_BusName.c_str(), NAME_FLAGS, error());
    error.Check("dbus_bus_request_name");
    m_OwnsName = result == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER;
    if (!m_OwnsName) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "The '%s' name is already taken!", m_BusName.c_str());
    }
}

void TOstelDBus::ReleaseBusName() {
    // A name that the bus does not allow was never owned, such as the one that ends in the process
    // id because the object connected before it was named.
    if (!m_Connected || !OstelBusText::IsBusName(m_BusName)) {
        return;
    }
    m_OwnsName = false;
    TBusError error;
    if (MayOwnNames()) {
        dbus_bus_release_name(m_ServerConnection, m_BusName.c_str(), error());
        error.Check("dbus_bus_release_name");
    }
    // The library never requests this name. Its release is part of what other applications see on
    // the bus when one changes its name, and stays.
    const std::string clientName = m_BusName + CLIENT_NAME_SUFFIX;
    if (OstelBusText::IsBusName(clientName)) {
        const auto held = m_ClientPump->Hold();
        dbus_bus_release_name(m_ClientConnection, clientName.c_str(), error());
        error.Check("dbus_bus_release_name");
    }
}

void TOstelDBus::Run() {
    if (m_Monitor) {
        BecomeMonitor();
    }
    StartWorkers();
}

void TOstelDBus::StartWorkers() {
    if (!m_Running) {
        TOstelIpc::Stop();
        m_WorkerWakeup->Reset();
    }
    TOstelIpc::Run();
}

void TOstelDBus::Stop() {
    if (m_Running.exchange(false) && !SendStopCall()) {
        m_WorkerWakeup->Wake();
    }
    TOstelIpc::Stop();
}

// The call that wakes a worker is part of what other applications see on the bus when one stops,
// and is dispatched as any other. False when it cannot come back to this object.
bool TOstelDBus::SendStopCall() {
    if (!m_Connected) {
        return false;
    }
    // The name that the bus knows: Init has stored the next one already.
    DBusMessage* const message =
        NewMethodCall(m_BusName.substr(std::strlen(BUS_NAME_PREFIX)), "Disconnected");
    if (message == nullptr) {
        return false;
    }
    const TBusMessage call(message);
    dbus_message_set_no_reply(call(), true);
    const auto held = m_ClientPump->Hold();
    DBusConnection* const client = m_ClientConnection;
    DBusConnection* const server = m_ServerConnection;
    if (client == nullptr || server == nullptr) {
        return false;
    }
    dbus_connection_send(client, call(), nullptr);
    m_ClientPump->Settle(client);
    return m_OwnsName && !m_Monitoring && !dbus_connection_has_messages_to_send(client) &&
           dbus_connection_get_is_connected(client) && dbus_connection_get_is_connected(server);
}

// Waiting is done before the bus library is called, since a worker that waits inside of it holds up
// the replies of the others.
void TOstelDBus::MainLoop() {
    const std::shared_ptr<TBusWakeup> wakeup = m_WorkerWakeup;
    while (m_Running) {
        DBusConnection* const connection = m_ServerConnection;
        // Input may have been read already, with the last message or by a thread that was writing.
        if (connection == nullptr ||
            dbus_connection_get_dispatch_status(connection) == DBUS_DISPATCH_COMPLETE) {
            const bool isWoken = wakeup->WaitForInput(connection, m_DispatchTimeoutMs);
            if (isWoken && m_Running) {
                // Left over from a stop that a callback has taken back, it would wake for ever.
                wakeup->Reset();
            }
            if (isWoken && !m_Running) {
                // For the next stop, if it came just before.
                wakeup->Wake();
            }
        }
        if (connection != nullptr) {
            dbus_connection_read_write_dispatch(connection, 0);
        }
    }
    // What ended this wait may have woken no other worker.
    wakeup->Wake();
}
