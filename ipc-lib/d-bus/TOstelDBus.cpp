// The life of the two connections, and what is sent over the client connection. What arrives on
// the server connection is in TOstelDBusIncoming.cpp.
#include "TOstelDBus.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <utility>

#include "OstelBusText.h"
#include "OstelLog.h"
#include "TBusPump.h"
#include "TBusWakeup.h"

namespace {

const char* const BUS_NAME_PREFIX = "com.Kaven.Ostel.";
const char* const OBJECT_PATH_PREFIX = "/com/Kaven/Ostel/";
const char* const INTERFACE_NAME = "com.Kaven.Ostel.Ostel";
const char* const CLIENT_NAME_SUFFIX = "_CLIENT";
constexpr unsigned int NAME_FLAGS =
    DBUS_NAME_FLAG_ALLOW_REPLACEMENT | DBUS_NAME_FLAG_REPLACE_EXISTING;

struct TPendingCallUnref {
    void operator()(DBusPendingCall* call) const { dbus_pending_call_unref(call); }
};

// What the bus library says of a call that has timed out.
const char* const NO_REPLY =
    "Did not receive a reply. Possible causes include: the remote application did not send a "
    "reply, "
    "the message bus security policy blocked the reply, the reply timeout expired, or the network "
    "connection was broken.";

[[noreturn]] void Fail(const char* text) {
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", text);
    throw std::runtime_error(text);
}

void AppendOrFail(DBusMessage* message, const std::string& text) {
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message, &arguments);
    if (!OstelBusText::Append(arguments, text)) {
        Fail("dbus_message_iter_append_basic failed");
    }
}

// A name that the bus does not allow makes no message.
void ThrowUnlessAllowed(bool allowed) {
    if (!allowed) {
        const TOstelDBus::TBusMessage none(nullptr);
    }
}

// Null when one of the names is not allowed on the bus.
DBusMessage* NewMethodCall(const std::string& serverId, const std::string& methodName) {
    const std::string busName = BUS_NAME_PREFIX + serverId;
    const std::string objectPath = OBJECT_PATH_PREFIX + serverId;
    if (!OstelBusText::IsBusName(busName) || !OstelBusText::IsObjectPath(objectPath) ||
        !OstelBusText::IsMember(methodName)) {
        return nullptr;
    }
    return dbus_message_new_method_call(busName.c_str(), objectPath.c_str(), INTERFACE_NAME,
                                        methodName.c_str());
}

DBusMessage* NewSignal(const std::string& objectPath, const std::string& eventName) {
    if (!OstelBusText::IsObjectPath(objectPath) || !OstelBusText::IsMember(eventName)) {
        return nullptr;
    }
    return dbus_message_new_signal(objectPath.c_str(), INTERFACE_NAME, eventName.c_str());
}

int ToMilliseconds(std::uint32_t seconds) {
    constexpr std::uint32_t longest = std::numeric_limits<int>::max() / 1000;
    return static_cast<int>(std::min(seconds, longest) * 1000);
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

// Keeps the connection that a call waits on, in case another thread disconnects the object.
struct TConnectionUnref {
    void operator()(DBusConnection* connection) const { dbus_connection_unref(connection); }
};
class TSharedConnection : public std::unique_ptr<DBusConnection, TConnectionUnref> {
public:
    explicit TSharedConnection(DBusConnection* connection)
        : unique_ptr(connection == nullptr ? nullptr : dbus_connection_ref(connection)) {}
};

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
    const auto close = IsServedByThisThread() ? Close : CloseForGood;
    close(m_ServerConnection.exchange(nullptr));
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
    OSTEL_LOG_AS(ZT_LOG_LEVEL_DEBUG, "ipc-lib/d-bus/TOstelDBus", "Init", "'%s' '%s' '%s'",
                 m_BusName.c_str(), m_InterfaceName.c_str(), m_ObjectPath.c_str());
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

void TOstelDBus::SendEvent(const std::string& eventName, const std::string& eventData) {
    if (!m_Connected) {
        Connect();
    }
    OSTEL_LOG(ZT_LOG_LEVEL_DEBUG, "'%s' '%s' '%s'", m_ObjectPath.c_str(), eventName.c_str(),
              eventData.c_str());
    const TBusMessage signal(NewSignal(m_ObjectPath, eventName));
    AppendOrFail(signal(), eventData);
    auto held = m_ClientPump->Hold();
    const TSharedConnection shared(m_ClientConnection);
    DBusConnection* const connection = shared.get();
    if (connection == nullptr || !dbus_connection_send(connection, signal(), nullptr)) {
        Fail("dbus_connection_send failed");
    }
    m_ClientPump->Settle(connection);
    m_ClientPump->RunUntil(
        held, connection,
        [connection] {
            return !dbus_connection_has_messages_to_send(connection) ||
                   !dbus_connection_get_is_connected(connection);
        },
        TBusPump::NEVER);
    // Without a bus the event was taken all the same and went nowhere.
    if (!dbus_connection_get_is_connected(connection)) {
        Fail("dbus_connection_send failed");
    }
}

int TOstelDBus::CallMethod(const std::string& methodName, const std::string& methodData,
                           std::string& reply) {
    TMethodSettings settings;
    GetMethodServerId(methodName, settings.serverId);
    if (settings.serverId.empty()) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "No server ID provided for '%s' method!",
                      methodName.c_str());
        return -1;
    }
    return CallMethod(methodName, methodData, reply, settings);
}

int TOstelDBus::CallMethod(const std::string& methodName, const std::string& methodData,
                           std::string& reply, TMethodSettings& settings) {
    const int timeoutMs = settings.timeout == TMethodSettings::DEFAULT_TIMEOUT
                              ? m_TimeoutMs.load()
                              : ToMilliseconds(settings.timeout);
    OSTEL_LOG(ZT_LOG_LEVEL_DEBUG, "%s", methodName.c_str());
    std::string serverId = settings.serverId;
    if (serverId.empty()) {
        GetMethodServerId(methodName, serverId);
    }
    if (serverId.empty()) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "No server ID provided for '%s' method!",
                      methodName.c_str());
        return -1;
    }
    if (!m_Connected) {
        Connect();
    }
    const TBusMessage request(NewMethodCall(serverId, methodName));
    AppendOrFail(request(), methodData);
    const auto deadline = TBusPump::TClock::now() + std::chrono::milliseconds(timeoutMs);
    auto held = m_ClientPump->Hold();
    const TSharedConnection shared(m_ClientConnection);
    DBusConnection* const connection = shared.get();
    DBusPendingCall* pending = nullptr;
    if (connection == nullptr ||
        !dbus_connection_send_with_reply(connection, request(), &pending, timeoutMs) ||
        pending == nullptr) {
        Fail("dbus_connection_send_with_reply failed");
    }
    const std::unique_ptr<DBusPendingCall, TPendingCallUnref> call(pending);
    m_ClientPump->Settle(connection);
    const auto isOver = [connection, pending] {
        return dbus_pending_call_get_completed(pending) ||
               !dbus_connection_get_is_connected(connection);
    };
    if (!m_ClientPump->RunUntil(held, connection, isOver, deadline)) {
        dbus_pending_call_cancel(pending);
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", NO_REPLY);
        return -1;
    }
    // Returns at once: the reply is there, or the connection is lost and the call fails.
    dbus_pending_call_block(pending);
    const TBusMessage answer(dbus_pending_call_steal_reply(pending));
    held.unlock();
    return TakeReply(answer, reply);
}

int TOstelDBus::TakeReply(const TBusMessage& message, std::string& reply) {
    const int type = message.GetType();
    int result = -1;
    if (type == DBUS_MESSAGE_TYPE_METHOD_RETURN) {
        GetMessageValue(message(), reply, &result);
    } else if (type == DBUS_MESSAGE_TYPE_ERROR) {
        LogErrorMessage(message());
    }
    return result;
}
