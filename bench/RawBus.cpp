#include "RawBus.h"

#include <stdexcept>

#include "Echo.h"

namespace {

void ThrowIfSet(DBusError& error) {
    if (dbus_error_is_set(&error)) {
        const std::string text = error.message;
        dbus_error_free(&error);
        throw std::runtime_error(text);
    }
}

}  // namespace

void RawBus::TClose::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

void RawBus::TUnref::operator()(DBusMessage* message) const {
    dbus_message_unref(message);
}

RawBus::TConnection RawBus::Connect() {
    dbus_threads_init_default();
    DBusError error;
    dbus_error_init(&error);
    TConnection connection(dbus_bus_get_private(DBUS_BUS_SYSTEM, &error));
    ThrowIfSet(error);
    dbus_connection_set_exit_on_disconnect(connection.get(), false);
    return connection;
}

void RawBus::TakeName(DBusConnection* connection, const std::string& id) {
    DBusError error;
    dbus_error_init(&error);
    dbus_bus_request_name(connection, EchoNames::Bus(id).c_str(),
                          DBUS_NAME_FLAG_ALLOW_REPLACEMENT | DBUS_NAME_FLAG_REPLACE_EXISTING,
                          &error);
    ThrowIfSet(error);
}

std::string RawBus::Call(DBusConnection* connection, const std::string& id,
                         const std::string& request) {
    const TMessage call(dbus_message_new_method_call(EchoNames::Bus(id).c_str(),
                                                     EchoNames::Path(id).c_str(),
                                                     EchoNames::INTERFACE, EchoNames::METHOD));
    const char* const text = request.c_str();
    dbus_message_append_args(call.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    DBusError error;
    dbus_error_init(&error);
    const TMessage answer(
        dbus_connection_send_with_reply_and_block(connection, call.get(), 60000, &error));
    ThrowIfSet(error);
    const char* reply = nullptr;
    dbus_int32_t code = -1;
    dbus_message_get_args(answer.get(), &error, DBUS_TYPE_STRING, &reply, DBUS_TYPE_INT32, &code,
                          DBUS_TYPE_INVALID);
    ThrowIfSet(error);
    return reply;
}
