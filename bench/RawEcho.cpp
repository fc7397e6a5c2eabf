// Round trips on the plain bus library.
#include <cstdio>

#include "Echo.h"
#include "RawBus.h"

namespace {

class TClient : public IEchoClient {
public:
    explicit TClient(std::string id) : m_Id(std::move(id)), m_Connection(RawBus::Connect()) {}

    std::string Call(const std::string& request) override {
        return RawBus::Call(m_Connection.get(), m_Id, request);
    }

private:
    std::string m_Id;
    RawBus::TConnection m_Connection;
};

DBusHandlerResult Answer(DBusConnection* connection, DBusMessage* call, void* reply) {
    if (dbus_message_get_type(call) != DBUS_MESSAGE_TYPE_METHOD_CALL) {
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    }
    const RawBus::TMessage answer(dbus_message_new_method_return(call));
    const char* const text = static_cast<const std::string*>(reply)->c_str();
    const dbus_int32_t code = 0;
    dbus_message_append_args(answer.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INT32, &code,
                             DBUS_TYPE_INVALID);
    dbus_connection_send(connection, answer.get(), nullptr);
    return DBUS_HANDLER_RESULT_HANDLED;
}

void Serve(const std::string& id, const std::string& reply) {
    const RawBus::TConnection connection = RawBus::Connect();
    dbus_connection_add_filter(connection.get(), &Answer, const_cast<std::string*>(&reply),
                               nullptr);
    RawBus::TakeName(connection.get(), id);
    std::puts("ready");
    std::fflush(stdout);
    while (dbus_connection_read_write_dispatch(connection.get(), -1)) {
    }
}

}  // namespace

const TEcho RAW_ECHO = {"raw", &Serve, [](const std::string& id) -> std::unique_ptr<IEchoClient> {
                            return std::make_unique<TClient>(id);
                        }};
