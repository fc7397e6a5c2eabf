#ifndef SCRIPTED_DISPATCHER_H
#define SCRIPTED_DISPATCHER_H

#include <dbus/dbus.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// An application on the bus that does as it is told: it answers each method with a text and a code,
// keeps every request as it came, and can be late, silent, malformed or dead. It is written against
// the bus library alone, so that it sees what any other program on the bus would see.
class ScriptedDispatcher {
public:
    struct TRequest {
        std::string method;
        std::string text;
        std::string signature;
        std::string path;
        std::string interface;
    };

    enum class TManner {
        ANSWER,        // with the text and the code
        ANSWER_TEXT,   // with the text alone
        ANSWER_ERROR,  // with a bus error of that text
        KEEP_SILENT,   // until Release, which answers with the text and the code
        DIE,           // closes its connection instead of answering
    };

    explicit ScriptedDispatcher(const std::string& id = "OSTEL_DISPATCHER");
    ScriptedDispatcher(const ScriptedDispatcher&) = delete;
    ScriptedDispatcher& operator=(const ScriptedDispatcher&) = delete;
    ~ScriptedDispatcher();

    // From now on. A method that is not in the script is answered with an empty text and -1.
    void Answer(const std::string& method, const std::string& text, int code = 0,
                TManner manner = TManner::ANSWER);
    // Answers what it has kept silent on.
    void Release();

    std::vector<TRequest> Requests() const;
    // Waits for that many requests of the method.
    bool WaitForRequests(const std::string& method, std::size_t count = 1) const;
    // The text of the last request of the method.
    std::string LastText(const std::string& method) const;

    // Broadcasts an event, as an application would.
    void SendEvent(const std::string& name, const std::string& data);
    // Calls another application's method; the code of its answer, or -1000 when there is none.
    int Call(const std::string& id, const std::string& method, const std::string& text);

private:
    struct TScript {
        std::string text;
        int code;
        TManner manner;
    };

    static DBusHandlerResult Filter(DBusConnection* connection, DBusMessage* message, void* self);
    void Serve();
    void Handle(DBusMessage* call);
    void Send(DBusMessage* message);

    const std::string m_Id;
    DBusConnection* m_Connection;
    std::atomic<bool> m_Running;
    mutable std::mutex m_Mutex;
    mutable std::condition_variable m_Grown;
    std::map<std::string, TScript> m_Script;
    std::vector<TRequest> m_Requests;
    std::vector<DBusMessage*> m_Silent;
    std::thread m_Thread;
};

#endif
