#ifndef SCRIPTED_DISPATCHER_H
#define SCRIPTED_DISPATCHER_H

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "RawPeer.h"

// A dispatcher that does as it is told: it answers each method with a text and a code, keeps every
// request as it came, and can be late, silent, malformed or dead.
class ScriptedDispatcher {
public:
    enum class TManner {
        ANSWER,        // with the text and the code
        ANSWER_TWICE,  // with the text and the code, and with them once more
        ANSWER_TEXT,   // with the text alone
        ANSWER_ERROR,  // with a bus error of that text
        KEEP_SILENT,   // until Release, which answers with the text and the code
        DIE,           // leaves the bus instead of answering
    };

    explicit ScriptedDispatcher(const std::string& id = "OSTEL_DISPATCHER");
    ScriptedDispatcher(const ScriptedDispatcher&) = delete;
    ScriptedDispatcher& operator=(const ScriptedDispatcher&) = delete;

    // From now on. A method that is not in the script is answered with an empty text and -1.
    void Answer(const std::string& method, const std::string& text, int code = 0,
                TManner manner = TManner::ANSWER);
    // Answers what it has kept silent on.
    void Release();

    std::vector<RawPeer::TMessage> Requests() const;
    bool WaitForRequest(const std::string& method) const { return m_Peer.WaitForMember(method); }
    // The text of the last request of the method.
    std::string LastText(const std::string& method) const;

    // Broadcasts an event, as an application would.
    void SendEvent(const std::string& name, const std::string& data);
    // Calls another application's method; the code of its answer, or -1000 when there is none.
    int Call(const std::string& id, const std::string& method, const std::string& text);

private:
    struct TUnref {
        void operator()(DBusMessage* message) const { dbus_message_unref(message); }
    };
    using TKept = std::unique_ptr<DBusMessage, TUnref>;

    struct TScript {
        std::string text;
        int code;
        TManner manner;
    };

    DBusMessage* AnswerTo(DBusMessage* call);
    TScript ScriptOf(DBusMessage* call) const;

    const std::string m_Id;
    mutable std::mutex m_Mutex;
    std::map<std::string, TScript> m_Script;
    std::vector<TKept> m_Silent;
    RawPeer m_Peer;  // last: its thread uses the others
};

#endif
