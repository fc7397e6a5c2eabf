#ifndef RAW_PEER_H
#define RAW_PEER_H

#include <dbus/dbus.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Another application on the bus, on the plain bus library: it answers calls as the test scripts
// it, keeps what arrives, and sends messages of any shape.
class RawPeer {
public:
    struct TMessage {
        int type;
        std::string sender;
        std::string path;
        std::string interface;
        std::string member;
        std::string signature;
        std::string text;  // the first argument, when it is a string
        bool wantsReply;
    };

    // Answers a call; a null result leaves it unanswered. Runs on the peer's thread.
    using TAnswer = std::function<DBusMessage*(DBusMessage* call)>;

    // Owns "com.Kaven.Ostel." + id, when there is an id, and sees all signals of the applications.
    explicit RawPeer(const std::string& id = "");
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;
    ~RawPeer();

    // Calls of `member` get this answer; "*" is for all that have none of their own.
    void Answer(const std::string& member, TAnswer answer);
    void Answer(const std::string& member, const std::string& reply, int result);

    void Send(DBusMessage* message);
    // The reply, or null after the timeout or when it is an error.
    DBusMessage* Call(DBusMessage* message, int timeoutMs);

    // Leaves the bus at once, as in a crash. An answer may do so, too.
    void Die();

    std::vector<TMessage> Received() const;
    bool WaitForMember(const std::string& member) const;
    // Returns when all that Received tells of by now is answered. Not to be called by an answer.
    void WaitForAnswers() const;

    static DBusMessage* NewCall(const std::string& id, const std::string& member);
    static DBusMessage* NewReply(DBusMessage* call, const std::string& reply, int result);

private:
    static DBusHandlerResult Filter(DBusConnection*, DBusMessage* message, void* self);
    void Handle(DBusMessage* message);

    DBusConnection* m_Connection;
    mutable std::mutex m_Handling;  // locked before m_Mutex
    mutable std::mutex m_Mutex;
    std::map<std::string, TAnswer> m_Answers;
    std::vector<TMessage> m_Received;
    std::atomic<bool> m_Running{true};
    std::thread m_Thread;
};

#endif
