#include "ScriptedDispatcher.h"

#include <algorithm>

namespace {

constexpr int CALL_TIMEOUT_MS = 60000;

void AppendText(DBusMessage* message, const std::string& text) {
    const char* const characters = text.c_str();
    dbus_message_append_args(message, DBUS_TYPE_STRING, &characters, DBUS_TYPE_INVALID);
}

}  // namespace

ScriptedDispatcher::ScriptedDispatcher(const std::string& id) : m_Id(id), m_Peer(id) {
    m_Peer.Answer("*", [this](DBusMessage* call) { return AnswerTo(call); });
}

ScriptedDispatcher::TScript ScriptedDispatcher::ScriptOf(DBusMessage* call) const {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto found = m_Script.find(dbus_message_get_member(call));
    return found != m_Script.end() ? found->second : TScript{"", -1, TManner::ANSWER};
}

DBusMessage* ScriptedDispatcher::AnswerTo(DBusMessage* call) {
    const TScript script = ScriptOf(call);
    switch (script.manner) {
        case TManner::ANSWER:
            return RawPeer::NewReply(call, script.text, script.code);
        case TManner::ANSWER_TWICE:
            m_Peer.Send(RawPeer::NewReply(call, script.text, script.code));
            return RawPeer::NewReply(call, script.text, script.code);
        case TManner::ANSWER_TEXT: {
            DBusMessage* const answer = dbus_message_new_method_return(call);
            AppendText(answer, script.text);
            return answer;
        }
        case TManner::ANSWER_ERROR:
            return dbus_message_new_error(call, "com.Kaven.Ostel.Error", script.text.c_str());
        case TManner::KEEP_SILENT: {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            m_Silent.emplace_back(dbus_message_ref(call));
            break;
        }
        case TManner::DIE:
            m_Peer.Die();
            break;
    }
    return nullptr;
}

void ScriptedDispatcher::Answer(const std::string& method, const std::string& text, int code,
                                TManner manner) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Script[method] = {text, code, manner};
}

void ScriptedDispatcher::Release() {
    m_Peer.WaitForAnswers();
    std::vector<TKept> calls;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        calls.swap(m_Silent);
    }
    for (const TKept& call : calls) {
        const TScript script = ScriptOf(call.get());
        m_Peer.Send(RawPeer::NewReply(call.get(), script.text, script.code));
    }
}

std::vector<RawPeer::TMessage> ScriptedDispatcher::Requests() const {
    std::vector<RawPeer::TMessage> requests = m_Peer.Received();
    const auto isNoRequest = [](const RawPeer::TMessage& message) {
        return message.type != DBUS_MESSAGE_TYPE_METHOD_CALL;
    };
    requests.erase(std::remove_if(requests.begin(), requests.end(), isNoRequest), requests.end());
    return requests;
}

std::string ScriptedDispatcher::LastText(const std::string& method) const {
    const std::vector<RawPeer::TMessage> requests = Requests();
    const auto last =
        std::find_if(requests.rbegin(), requests.rend(),
                     [&](const RawPeer::TMessage& request) { return request.member == method; });
    return last != requests.rend() ? last->text : "no request of " + method;
}

void ScriptedDispatcher::SendEvent(const std::string& name, const std::string& data) {
    DBusMessage* const signal = dbus_message_new_signal(("/com/Kaven/Ostel/" + m_Id).c_str(),
                                                        "com.Kaven.Ostel.Ostel", name.c_str());
    AppendText(signal, data);
    m_Peer.Send(signal);
}

int ScriptedDispatcher::Call(const std::string& id, const std::string& method,
                             const std::string& text) {
    DBusMessage* const call = RawPeer::NewCall(id, method);
    AppendText(call, text);
    DBusMessage* const answer = m_Peer.Call(call, CALL_TIMEOUT_MS);
    dbus_int32_t code = -1000;
    if (answer != nullptr) {
        const char* reply = nullptr;
        dbus_message_get_args(answer, nullptr, DBUS_TYPE_STRING, &reply, DBUS_TYPE_INT32, &code,
                              DBUS_TYPE_INVALID);
        dbus_message_unref(answer);
    }
    return code;
}
