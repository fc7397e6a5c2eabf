#ifndef NAME_WATCH_H
#define NAME_WATCH_H

#include <dbus/dbus.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>

// Tells of applications that come and go by what the bus announces to everybody, for a gateway that
// may not become a monitor. Watches on a connection and a thread of its own until it is destroyed.
class TNameWatch {
public:
    // Called on the watching thread with APP_CONNECTED or APP_DISCONNECTED and the application's
    // id.
    using TNotice = std::function<void(const std::string& eventName, const std::string& id)>;

    // Throws std::runtime_error when the bus cannot be watched.
    explicit TNameWatch(TNotice notice);
    TNameWatch(const TNameWatch&) = delete;
    TNameWatch& operator=(const TNameWatch&) = delete;
    ~TNameWatch();

private:
    struct TCloser {
        void operator()(DBusConnection* connection) const;
    };

    void Watch();
    void HandleReceived();
    void Handle(DBusMessage* message) const;

    TNotice m_Notice;
    std::unique_ptr<DBusConnection, TCloser> m_Connection;
    int m_Stop;
    std::thread m_Thread;
};

#endif
