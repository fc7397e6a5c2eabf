// Calls and events, sent over the client connection.
#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>

#include "OstelBusMessages.h"
#include "OstelBusText.h"
#include "OstelLog.h"
#include "TBusPump.h"
#include "TOstelDBus.h"

using namespace OstelBusMessages;

namespace {

struct TPendingCallUnref {
    void operator()(DBusPendingCall* call) const { dbus_pending_call_unref(call); }
};

// What the bus library says of a call that has timed out.
const char* const NO_REPLY =
    "Did not receive a reply. Possible causes include: the remote application did not send a "
    "reply, the message bus security policy blocked the reply, the reply timeout expired, or the "
    "network connection was broken.";

void AppendOrFail(DBusMessage* message, const std::string& text) {
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message, &arguments);
    if (!OstelBusText::Append(arguments, text)) {
        Fail("dbus_message_iter_append_basic failed");
    }
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

// Keeps the connection that a call waits on, in case another thread disconnects the object.
struct TConnectionUnref {
    void operator()(DBusConnection* connection) const { dbus_connection_unref(connection); }
};
class TSharedConnection : public std::unique_ptr<DBusConnection, TConnectionUnref> {
public:
    explicit TSharedConnection(DBusConnection* connection)
        : unique_ptr(connection == nullptr ? nullptr : dbus_connection_ref(connection)) {}
};

}  // namespace

DBusMessage* OstelBusMessages::NewMethodCall(const std::string& serverId,
                                             const std::string& methodName) {
    const std::string busName = BUS_NAME_PREFIX + serverId;
    const std::string objectPath = OBJECT_PATH_PREFIX + serverId;
    if (!OstelBusText::IsBusName(busName) || !OstelBusText::IsObjectPath(objectPath) ||
        !OstelBusText::IsMember(methodName)) {
        return nullptr;
    }
    return dbus_message_new_method_call(busName.c_str(), objectPath.c_str(), INTERFACE_NAME,
                                        methodName.c_str());
}

void TOstelDBus::SendEvent(const std::string& eventName, const std::string& eventData) {
    if (!m_Connected) {
        Connect();
    }
    OSTEL_LOG_AS(ZT_LOG_LEVEL_DEBUG, MODULE, __func__, "'%s' '%s' '%s'", m_ObjectPath.c_str(),
                 eventName.c_str(), eventData.c_str());
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
        held, connection, nullptr,
        [](DBusConnection* client, DBusPendingCall*) {
            return !dbus_connection_has_messages_to_send(client) ||
                   !dbus_connection_get_is_connected(client);
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
    OSTEL_LOG_AS(ZT_LOG_LEVEL_DEBUG, MODULE, __func__, "%s", methodName.c_str());
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
    const auto isOver = [](DBusConnection* client, DBusPendingCall* sent) -> bool {
        return dbus_pending_call_get_completed(sent) || !dbus_connection_get_is_connected(client);
    };
    if (!m_ClientPump->RunUntil(held, connection, pending, isOver, deadline)) {
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
