#ifndef BUS_WATCH_H
#define BUS_WATCH_H

#include <chrono>
#include <memory>
#include <string>

struct DBusConnection;

// A connection to the bus on which nothing is sent or served. Applications are not told when their
// bus goes away, and may take each other's names without a word; the gateway has to know both. For
// one thread.
class TBusWatch {
public:
    // Throws std::runtime_error without a bus.
    TBusWatch();

    // Does an application of this id answer to its name now?
    bool IsThere(const std::string& id) const;
    // Waits until none does; false when one still does in the end.
    bool WaitUntilGone(const std::string& id, std::chrono::milliseconds limit) const;

    // Readable when IsConnected has something to look at.
    int Descriptor() const;
    bool IsConnected() const;

private:
    bool DropReceived() const;

    struct TClose {
        void operator()(DBusConnection* connection) const;
    };

    std::unique_ptr<DBusConnection, TClose> m_Connection;
};

#endif
