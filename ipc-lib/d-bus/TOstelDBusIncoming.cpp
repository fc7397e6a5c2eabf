// What arrives on the server connection, on the worker threads: method calls and events, or in
// monitor mode the applications that come and go.
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string_view>

#include "OstelBusMessages.h"
#include "OstelBusText.h"
#include "OstelLog.h"
#include "TOstelDBus.h"

using namespace OstelBusMessages;

namespace {

constexpr int MONITOR_DISPATCH_TIMEOUT_MS = 500;
constexpr int READ_ARGUMENTS = 3;

// Callbacks belong to the application; nothing they throw may reach the bus library's C code or
// end the worker. Call it from a catch block.
void LogCaught() {
    try {
        throw;
    } catch (const std::exception& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", error.what());
    } catch (...) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", "Unknown exception");
    }
}

void AppendMonitorRules(DBusMessage* message) {
    DBusMessageIter arguments;
    DBusMessageIter rules;
    dbus_message_iter_init_append(message, &arguments);
    if (!dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING_AS_STRING,
                                          &rules)) {
        Fail("dbus_message_iter_open_container failed");
    }
    for (const char* rule :
         {"type='signal',member='NameAcquired'", "type='signal',member='NameLost'"}) {
        if (!dbus_message_iter_append_basic(&rules, DBUS_TYPE_STRING, &rule)) {
            dbus_message_iter_abandon_container(&arguments, &rules);
            Fail("dbus_message_iter_append_basic failed");
        }
    }
    if (!dbus_message_iter_close_container(&arguments, &rules)) {
        Fail("dbus_message_iter_close_container failed");
    }
    const dbus_uint32_t flags = 0;
    if (!dbus_message_iter_append_basic(&arguments, DBUS_TYPE_UINT32, &flags)) {
        Fail("dbus_message_iter_append_basic failed");
    }
}

}  // namespace

DBusHandlerResult TOstelDBus::Filter(DBusConnection*, DBusMessage* message, void* self) {
    if (self != nullptr) {
        try {
            auto* const bus = static_cast<TOstelDBus*>(self);
            if (bus->m_Monitor) {
                bus->MonitorHandler(message);
            } else {
                bus->MessageHandler(message);
            }
        } catch (...) {
            LogCaught();
        }
    }
    return DBUS_HANDLER_RESULT_HANDLED;
}

void TOstelDBus::MessageHandler(DBusMessage* message) {
    const int type = dbus_message_get_type(message);
    const char* const member = dbus_message_get_member(message);
    const std::string name = member != nullptr ? member : "";
    std::string value;
    int result = -1;
    GetMessageValue(message, value, &result);
    switch (type) {
        case DBUS_MESSAGE_TYPE_ERROR:
            LogErrorMessage(message);
            break;
        case DBUS_MESSAGE_TYPE_SIGNAL:
            OnEvent(name, value);
            break;
        case DBUS_MESSAGE_TYPE_METHOD_CALL:
            DispatchMethodCall(message, name, value);
            break;
        default:
            break;
    }
}

void TOstelDBus::LogErrorMessage(DBusMessage* message) {
    const char* text = nullptr;
    if (!dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID)) {
        text = "";
    }
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", text);
}

void TOstelDBus::DispatchMethodCall(DBusMessage* call, const std::string& name,
                                    const std::string& data) {
    std::string reply;
    int result = -1;
    try {
        result = OnMethodCall(name, data, reply);
    } catch (...) {
        // The caller gets an answer nevertheless, or it would wait until its timeout.
        LogCaught();
        reply.clear();
        result = -1;
    }
    try {
        Reply(call, reply, result);
    } catch (const std::runtime_error& error) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", error.what());
    }
}

void TOstelDBus::MonitorHandler(DBusMessage* message) {
    const char* const member = dbus_message_get_member(message);
    if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_SIGNAL || member == nullptr) {
        return;
    }
    const std::string_view prefix = BUS_NAME_PREFIX;
    std::string name;
    int ignored = -1;
    GetMessageValue(message, name, &ignored);
    if (name.compare(0, prefix.length(), prefix) != 0) {
        return;
    }
    const std::string id = name.substr(prefix.length());
    if (std::strcmp(member, "NameAcquired") == 0) {
        OnEvent(ON_APP_CONNECTED_EVENT, id);
    } else if (std::strcmp(member, "NameLost") == 0) {
        OnEvent(ON_APP_DISCONNECTED_EVENT, id);
    }
}

void TOstelDBus::GetMessageValue(DBusMessage* message, std::string& value, int* result) {
    std::string text;
    if (result != nullptr) {
        *result = -1;
    }
    if (message != nullptr && result != nullptr) {
        DBusMessageIter arguments;
        if (!dbus_message_iter_init(message, &arguments)) {
            ztLogging_log(ZT_LOG_LEVEL_WARNING, "Message has no parameters.");
        }
        for (int i = 0; i < READ_ARGUMENTS; ++i) {
            const int type = dbus_message_iter_get_arg_type(&arguments);
            if (type == DBUS_TYPE_STRING) {
                const char* characters = nullptr;
                dbus_message_iter_get_basic(&arguments, &characters);
                text = characters;
            } else if (type == DBUS_TYPE_INT32) {
                dbus_int32_t number = -1;
                dbus_message_iter_get_basic(&arguments, &number);
                *result = number;
            }
            if (!dbus_message_iter_next(&arguments)) {
                break;
            }
        }
    }
    value = std::move(text);
}

void TOstelDBus::Reply(DBusMessage* call, const std::string& reply, int result) {
    OSTEL_LOG_AS(ZT_LOG_LEVEL_DEBUG, MODULE, __func__, "'%s' - '%d'", reply.c_str(), result);
    const TBusMessage answer(dbus_message_new_method_return(call));
    DBusMessageIter arguments;
    dbus_message_iter_init_append(answer(), &arguments);
    const dbus_int32_t code = result;
    // Kept silent: a reply that the bus cannot carry leaves the caller to its timeout.
    if (!OstelBusText::Append(arguments, reply) ||
        !dbus_message_iter_append_basic(&arguments, DBUS_TYPE_INT32, &code)) {
        return;
    }
    // The handler itself may have disconnected the object.
    DBusConnection* const connection = m_ServerConnection;
    const bool sent = connection != nullptr && dbus_connection_send(connection, answer(), nullptr);
    if (sent) {
        dbus_connection_flush(connection);
    }
    // On a lost connection the bus library takes a message and never sends it.
    if (!sent || !dbus_connection_get_is_connected(connection)) {
        throw std::runtime_error("dbus_connection_send failed");
    }
}

void TOstelDBus::BecomeMonitor() {
    if (!m_Connected) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "Not connected!");
        return;
    }
    // A monitor stays one until it is disconnected, and may not ask again.
    if (m_Monitoring) {
        return;
    }
    const TBusMessage request(dbus_message_new_method_call(
        DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, "org.freedesktop.DBus.Monitoring", "BecomeMonitor"));
    AppendMonitorRules(request());
    TBusError error;
    DBusMessage* const answer = dbus_connection_send_with_reply_and_block(
        m_ServerConnection, request(), DBUS_TIMEOUT_USE_DEFAULT, error());
    error.Check("dbus_connection_send_with_reply_and_block");
    const TBusMessage owned(answer);
    m_Monitoring = true;
    m_DispatchTimeoutMs = MONITOR_DISPATCH_TIMEOUT_MS;
}
