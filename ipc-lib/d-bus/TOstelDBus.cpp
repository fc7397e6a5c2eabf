// The life of the two connections, and what is sent over the client connection. What arrives on
// the server connection is in TOstelDBusIncoming.cpp.
#include "TOstelDBus.h"

#include <unistd.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <stdexcept>
#include <utility>

#include "OstelBusText.h"
#include "OstelLog.h"

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

// Gives back both references that the object holds.
void Close(DBusConnection* connection) {
    if (connection == nullptr) {
        return;
    }
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
    dbus_connection_unref(connection);
}

struct TConnectionCloser {
    void operator()(DBusConnection* connection) const { Close(connection); }
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
      m_DispatchTimeoutMs(1000) {
    dbus_threads_init_default();
}

TOstelDBus::~TOstelDBus() {
    TOstelDBus::Stop();
    Disconnect();
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
    m_ClientConnection = CreateConnection(DBUS_BUS_SYSTEM);
    m_ServerConnection = server.release();
    m_BusName += std::to_string(getpid());
    m_ObjectPath += std::to_string(getpid());
    if (!dbus_connection_add_filter(m_ServerConnection, &TOstelDBus::Filter, this, nullptr)) {
        m_Connected = true;
        Fail("Can't add ServerConnection filter.");
    }
    TBusError error;
    const std::string rule = "interface='" + m_InterfaceName + "'";
    dbus_bus_add_match(m_ServerConnection, rule.c_str(), error());
    // Other threads use the connections from here on, so it comes after what sets them up.
    m_Connected = true;
    error.Check("dbus_bus_add_match");
}

void TOstelDBus::Disconnect() {
    Close(m_ServerConnection.exchange(nullptr));
    Close(std::exchange(m_ClientConnection, nullptr));
    m_Connected = false;
}

void TOstelDBus::Init(const std::string& name) {
    OSTEL_LOG(ZT_LOG_LEVEL_DEBUG, "%s", name.c_str());
    if (name == m_Name) {
        ztLogging_log(ZT_LOG_LEVEL_WARNING, "The same ID (%s), do nothing.", name.c_str());
        return;
    }
    const std::string previousName = m_Name;
    TOstelIpc::Init(name);
    const bool wasRunning = m_Running;
    if (wasRunning) {
        Stop();
    }
    try {
        TakeName(name);
    } catch (...) {
        // Without the new name, or a further attempt would pass for the same ID.
        TOstelIpc::Init(previousName);
        if (wasRunning) {
            Run();
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
    OSTEL_LOG(ZT_LOG_LEVEL_DEBUG, "'%s' '%s' '%s'", m_BusName.c_str(), m_InterfaceName.c_str(),
              m_ObjectPath.c_str());
    if (m_Connected) {
        RegisterBusName();
    }
}

void TOstelDBus::RegisterBusName() {
    if (!m_Connected) {
        return;
    }
    TBusError error;
    int result = 0;
    if (OstelBusText::IsBusName(m_BusName)) {
        result = dbus_bus_request_name(m_ServerConnection, m_BusName.c_str(), NAME_FLAGS, error());
    } else {
        dbus_set_error(
            error(), DBUS_ERROR_INVALID_ARGS, "'%s' is not a bus name",
            OstelBusText::HasNul(m_BusName) || !dbus_validate_utf8(m_BusName.c_str(), nullptr)
                ? "?"
                : m_BusName.c_str());
    }
    error.Check("dbus_bus_request_name");
    if (result != DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "The '%s' name is already taken!", m_BusName.c_str());
    }
}

void TOstelDBus::ReleaseBusName() {
    // A name that the bus does not allow was never owned, such as the one that ends in the process
    // id because the object connected before it was named.
    if (!m_Connected || !OstelBusText::IsBusName(m_BusName)) {
        return;
    }
    TBusError error;
    dbus_bus_release_name(m_ServerConnection, m_BusName.c_str(), error());
    error.Check("dbus_bus_release_name");
    // The library never requests this name. Its release is part of what other applications see on
    // the bus when one changes its name, and stays.
    const std::string clientName = m_BusName + CLIENT_NAME_SUFFIX;
    if (OstelBusText::IsBusName(clientName)) {
        dbus_bus_release_name(m_ClientConnection, clientName.c_str(), error());
        error.Check("dbus_bus_release_name");
    }
}

void TOstelDBus::Run() {
    if (m_Monitor) {
        BecomeMonitor();
    }
    TOstelIpc::Run();
}

void TOstelDBus::Stop() {
    if (!m_Running) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(m_StopMutex);
        m_Running = false;
    }
    m_Stopped.notify_all();
    WakeWorkers();
    TOstelIpc::Stop();
}

// A worker sits in its receive call until something arrives: a call to the object's own name does.
// Each call frees one worker; the others would sit out their timeouts one behind the other.
void TOstelDBus::WakeWorkers() {
    if (!m_Connected) {
        return;
    }
    for (std::size_t i = 0; i < m_Workers.size(); ++i) {
        DBusMessage* const message = NewMethodCall(m_Name, "Disconnected");
        if (message == nullptr) {
            return;
        }
        const TBusMessage call(message);
        dbus_message_set_no_reply(call(), true);
        dbus_connection_send(m_ClientConnection, call(), nullptr);
    }
    dbus_connection_flush(m_ClientConnection);
}

void TOstelDBus::MainLoop() {
    while (m_Running) {
        DBusConnection* const connection = m_ServerConnection;
        if (connection != nullptr &&
            dbus_connection_read_write_dispatch(connection, m_DispatchTimeoutMs)) {
            continue;
        }
        // Without a bus the call above returns at once.
        std::unique_lock<std::mutex> lock(m_StopMutex);
        m_Stopped.wait_for(lock, std::chrono::milliseconds(m_DispatchTimeoutMs),
                           [this] { return !m_Running; });
    }
}

void TOstelDBus::SendEvent(const std::string& eventName, const std::string& eventData) {
    if (!m_Connected) {
        Connect();
    }
    OSTEL_LOG(ZT_LOG_LEVEL_DEBUG, "'%s' '%s' '%s'", m_ObjectPath.c_str(), eventName.c_str(),
              eventData.c_str());
    const TBusMessage signal(NewSignal(m_ObjectPath, eventName));
    AppendOrFail(signal(), eventData);
    if (!dbus_connection_send(m_ClientConnection, signal(), nullptr)) {
        Fail("dbus_connection_send failed");
    }
    dbus_connection_flush(m_ClientConnection);
    // Without a bus the event was taken all the same and went nowhere.
    if (!dbus_connection_get_is_connected(m_ClientConnection)) {
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
                              ? m_TimeoutMs
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
    DBusPendingCall* pending = nullptr;
    if (!dbus_connection_send_with_reply(m_ClientConnection, request(), &pending, timeoutMs) ||
        pending == nullptr) {
        Fail("dbus_connection_send_with_reply failed");
    }
    const std::unique_ptr<DBusPendingCall, TPendingCallUnref> call(pending);
    dbus_connection_flush(m_ClientConnection);
    dbus_pending_call_block(pending);
    const TBusMessage answer(dbus_pending_call_steal_reply(pending));
    DrainClientConnection();
    return TakeReply(answer, reply);
}

int TOstelDBus::TakeReply(const TBusMessage& message, std::string& reply) {
    const int type = message.GetType();
    int result = -1;
    if (type == DBUS_MESSAGE_TYPE_METHOD_RETURN) {
        GetMessageValue(message(), reply, &result);
    } else if (type == DBUS_MESSAGE_TYPE_ERROR) {
        std::string text;
        int ignored = -1;
        GetMessageValue(message(), text, &ignored);
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", text.c_str());
    }
    return result;
}

// No worker dispatches the client connection, so answers that came too late and the bus's own
// signals would stay in its queue for ever. Dispatching hands an answer that another thread waits
// for to that thread's call.
void TOstelDBus::DrainClientConnection() {
    while (dbus_connection_dispatch(m_ClientConnection) == DBUS_DISPATCH_DATA_REMAINS) {
    }
}
