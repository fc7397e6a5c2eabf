#include "ScriptedDispatcher.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace {

constexpr int POLL_MS = 10;
constexpr int CALL_TIMEOUT_MS = 10000;
const char* const INTERFACE = "com.Kaven.Ostel.Ostel";

std::string Name(const std::string& id) {
    return "com.Kaven.Ostel." + id;
}

std::string Path(const std::string& id) {
    return "/com/Kaven/Ostel/" + id;
}

std::string Copy(const char* text) {
    return text != nullptr ? text : "";
}

DBusConnection* Connect() {
    DBusConnection* const connection =
        dbus_connection_open_private(std::getenv("DBUS_SYSTEM_BUS_ADDRESS"), nullptr);
    if (connection == nullptr || !dbus_bus_register(connection, nullptr)) {
        throw std::runtime_error("The scripted dispatcher finds no bus");
    }
    dbus_connection_set_exit_on_disconnect(connection, false);
    return connection;
}

DBusMessage* NewAnswer(DBusMessage* call, const std::string& text, int code, bool withCode) {
    DBusMessage* const answer = dbus_message_new_method_return(call);
    const char* const characters = text.c_str();
    dbus_message_append_args(answer, DBUS_TYPE_STRING, &characters, DBUS_TYPE_INVALID);
    if (withCode) {
        const dbus_int32_t number = code;
        dbus_message_append_args(answer, DBUS_TYPE_INT32, &number, DBUS_TYPE_INVALID);
    }
    return answer;
}

}  // namespace

ScriptedDispatcher::ScriptedDispatcher(const std::string& id) : m_Id(id), m_Running(true) {
    dbus_threads_init_default();
    m_Connection = Connect();
    dbus_connection_add_filter(m_Connection, &ScriptedDispatcher::Filter, this, nullptr);
    dbus_bus_request_name(m_Connection, Name(id).c_str(), 0, nullptr);
    m_Thread = std::thread([this] { Serve(); });
}

ScriptedDispatcher::~ScriptedDispatcher() {
    m_Running = false;
    m_Thread.join();
    for (DBusMessage* call : m_Silent) {
        dbus_message_unref(call);
    }
    dbus_connection_close(m_Connection);
    dbus_connection_unref(m_Connection);
}

void ScriptedDispatcher::Serve() {
    while (m_Running && dbus_connection_read_write_dispatch(m_Connection, POLL_MS)) {
    }
}

DBusHandlerResult ScriptedDispatcher::Filter(DBusConnection*, DBusMessage* message, void* self) {
    if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
        static_cast<ScriptedDispatcher*>(self)->Handle(message);
        return DBUS_HANDLER_RESULT_HANDLED;
    }
    return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
}

void ScriptedDispatcher::Handle(DBusMessage* call) {
    const char* text = nullptr;
    dbus_message_get_args(call, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    const std::string method = Copy(dbus_message_get_member(call));
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Requests.push_back({method, Copy(text), Copy(dbus_message_get_signature(call)),
                          Copy(dbus_message_get_path(call)),
                          Copy(dbus_message_get_interface(call))});
    m_Grown.notify_all();
    const auto found = m_Script.find(method);
    const TScript script =
        found != m_Script.end() ? found->second : TScript{"", -1, TManner::ANSWER};
    switch (script.manner) {
        case TManner::ANSWER:
        case TManner::ANSWER_TEXT:
            Send(NewAnswer(call, script.text, script.code, script.manner == TManner::ANSWER));
            break;
        case TManner::ANSWER_ERROR:
            Send(dbus_message_new_error(call, "com.Kaven.Ostel.Error", script.text.c_str()));
            break;
        case TManner::KEEP_SILENT:
            m_Silent.push_back(dbus_message_ref(call));
            break;
        case TManner::DIE:
            m_Running = false;
            dbus_connection_close(m_Connection);
            break;
    }
}

void ScriptedDispatcher::Send(DBusMessage* message) {
    dbus_connection_send(m_Connection, message, nullptr);
    dbus_connection_flush(m_Connection);
    dbus_message_unref(message);
}

void ScriptedDispatcher::Answer(const std::string& method, const std::string& text, int code,
                                TManner manner) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Script[method] = {text, code, manner};
}

void ScriptedDispatcher::Release() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (DBusMessage* call : m_Silent) {
        const TScript& script = m_Script[Copy(dbus_message_get_member(call))];
        Send(NewAnswer(call, script.text, script.code, true));
        dbus_message_unref(call);
    }
    m_Silent.clear();
}

std::vector<ScriptedDispatcher::TRequest> ScriptedDispatcher::Requests() const {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Requests;
}

bool ScriptedDispatcher::WaitForRequests(const std::string& method, std::size_t count) const {
    std::unique_lock<std::mutex> lock(m_Mutex);
    return m_Grown.wait_for(lock, std::chrono::seconds(10), [&] {
        const auto found =
            std::count_if(m_Requests.begin(), m_Requests.end(),
                          [&](const TRequest& request) { return request.method == method; });
        return static_cast<std::size_t>(found) >= count;
    });
}

std::string ScriptedDispatcher::LastText(const std::string& method) const {
    const std::vector<TRequest> requests = Requests();
    const auto last =
        std::find_if(requests.rbegin(), requests.rend(),
                     [&](const TRequest& request) { return request.method == method; });
    return last != requests.rend() ? last->text : "no request of " + method;
}

void ScriptedDispatcher::SendEvent(const std::string& name, const std::string& data) {
    DBusMessage* const signal =
        dbus_message_new_signal(Path(m_Id).c_str(), INTERFACE, name.c_str());
    const char* const characters = data.c_str();
    dbus_message_append_args(signal, DBUS_TYPE_STRING, &characters, DBUS_TYPE_INVALID);
    Send(signal);
}

// On a connection of its own: this one's answers are taken by the serving thread.
int ScriptedDispatcher::Call(const std::string& id, const std::string& method,
                             const std::string& text) {
    DBusConnection* const connection = Connect();
    DBusMessage* const call =
        dbus_message_new_method_call(Name(id).c_str(), Path(id).c_str(), INTERFACE, method.c_str());
    const char* const characters = text.c_str();
    dbus_message_append_args(call, DBUS_TYPE_STRING, &characters, DBUS_TYPE_INVALID);
    DBusMessage* const answer =
        dbus_connection_send_with_reply_and_block(connection, call, CALL_TIMEOUT_MS, nullptr);
    dbus_message_unref(call);
    dbus_int32_t code = -1000;
    if (answer != nullptr) {
        const char* reply = nullptr;
        dbus_message_get_args(answer, nullptr, DBUS_TYPE_STRING, &reply, DBUS_TYPE_INT32, &code,
                              DBUS_TYPE_INVALID);
        dbus_message_unref(answer);
    }
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
    return code;
}
