#include "RawPeer.h"

#include <stdexcept>

#include "WaitUntil.h"

namespace {

void ThrowIfSet(DBusError& error) {
    if (dbus_error_is_set(&error)) {
        const std::string text = error.message;
        dbus_error_free(&error);
        throw std::runtime_error(text);
    }
}

std::string Text(const char* text) {
    return text != nullptr ? text : "";
}

DBusConnection* Connect() {
    DBusError error;
    dbus_error_init(&error);
    DBusConnection* const connection = dbus_bus_get_private(DBUS_BUS_SYSTEM, &error);
    ThrowIfSet(error);
    dbus_connection_set_exit_on_disconnect(connection, false);
    return connection;
}

}  // namespace

RawPeer::RawPeer(const std::string& id) {
    dbus_threads_init_default();
    m_Connection = Connect();
    DBusError error;
    dbus_error_init(&error);
    dbus_connection_add_filter(m_Connection, &RawPeer::Filter, this, nullptr);
    dbus_bus_add_match(m_Connection, "interface='com.Kaven.Ostel.Ostel'", &error);
    ThrowIfSet(error);
    if (!id.empty()) {
        dbus_bus_request_name(m_Connection, ("com.Kaven.Ostel." + id).c_str(), 0, &error);
        ThrowIfSet(error);
    }
    m_Thread = std::thread([this] {
        while (m_Running && dbus_connection_read_write_dispatch(m_Connection, 10)) {
        }
    });
}

RawPeer::~RawPeer() {
    m_Running = false;
    m_Thread.join();
    dbus_connection_close(m_Connection);
    dbus_connection_unref(m_Connection);
}

void RawPeer::Answer(const std::string& member, TAnswer answer) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Answers[member] = std::move(answer);
}

void RawPeer::Answer(const std::string& member, const std::string& reply, int result) {
    Answer(member, [reply, result](DBusMessage* call) { return NewReply(call, reply, result); });
}

void RawPeer::Send(DBusMessage* message) {
    dbus_connection_send(m_Connection, message, nullptr);
    dbus_connection_flush(m_Connection);
    dbus_message_unref(message);
}

// On a connection of its own: the peer's thread would compete for the reply.
DBusMessage* RawPeer::Call(DBusMessage* message, int timeoutMs) {
    DBusConnection* const connection = Connect();
    DBusError error;
    dbus_error_init(&error);
    DBusMessage* const reply =
        dbus_connection_send_with_reply_and_block(connection, message, timeoutMs, &error);
    dbus_error_free(&error);
    dbus_message_unref(message);
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
    return reply;
}

void RawPeer::Die() {
    m_Running = false;
    dbus_connection_close(m_Connection);
}

std::vector<RawPeer::TMessage> RawPeer::Received() const {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Received;
}

bool RawPeer::WaitForMember(const std::string& member) const {
    return WaitUntil([&] {
        for (const TMessage& message : Received()) {
            if (message.member == member) {
                return true;
            }
        }
        return false;
    });
}

void RawPeer::WaitForAnswers() const {
    const std::lock_guard<std::mutex> handled(m_Handling);
}

DBusMessage* RawPeer::NewCall(const std::string& id, const std::string& member) {
    return dbus_message_new_method_call(("com.Kaven.Ostel." + id).c_str(),
                                        ("/com/Kaven/Ostel/" + id).c_str(), "com.Kaven.Ostel.Ostel",
                                        member.c_str());
}

DBusMessage* RawPeer::NewReply(DBusMessage* call, const std::string& reply, int result) {
    DBusMessage* const answer = dbus_message_new_method_return(call);
    const char* const text = reply.c_str();
    const dbus_int32_t code = result;
    dbus_message_append_args(answer, DBUS_TYPE_STRING, &text, DBUS_TYPE_INT32, &code,
                             DBUS_TYPE_INVALID);
    return answer;
}

DBusHandlerResult RawPeer::Filter(DBusConnection*, DBusMessage* message, void* self) {
    static_cast<RawPeer*>(self)->Handle(message);
    return DBUS_HANDLER_RESULT_HANDLED;
}

void RawPeer::Handle(DBusMessage* message) {
    TMessage seen{dbus_message_get_type(message),
                  Text(dbus_message_get_sender(message)),
                  Text(dbus_message_get_path(message)),
                  Text(dbus_message_get_interface(message)),
                  Text(dbus_message_get_member(message)),
                  Text(dbus_message_get_signature(message)),
                  "",
                  !dbus_message_get_no_reply(message)};
    const char* text = nullptr;
    if (dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID)) {
        seen.text = text;
    }
    const std::lock_guard<std::mutex> handling(m_Handling);
    TAnswer answer;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Received.push_back(seen);
        auto found = m_Answers.find(seen.member);
        if (found == m_Answers.end()) {
            found = m_Answers.find("*");
        }
        if (found != m_Answers.end() && seen.type == DBUS_MESSAGE_TYPE_METHOD_CALL) {
            answer = found->second;
        }
    }
    DBusMessage* const reply = answer ? answer(message) : nullptr;
    if (reply != nullptr) {
        Send(reply);
    }
}
