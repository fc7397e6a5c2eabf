// Internal, not installed: how several threads send and wait for replies on one bus connection that
// nobody else serves.
//
// Every use of the connection is under one lock, which is never held while waiting. The bus library
// has a lock of its own, but gives it up half-way when a connection is lost while calls wait on it,
// and crashes when a second thread comes in between.
//
// One of the threads that wait is the reader: it polls the connection, then reads, writes and
// dispatches, which completes the calls whose replies have come, its own or others'. The others
// sleep until the reader has done a round; when the reader has what it waits for, one of them takes
// over. So a call or an event is written at once however long others wait, and each call ends at
// its own timeout.
#ifndef T_BUS_PUMP_H
#define T_BUS_PUMP_H

#include <dbus/dbus.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "TBusWakeup.h"

class TBusPump {
public:
    using TClock = std::chrono::steady_clock;
    // What one waits for on a connection; the call is the one that it was asked with.
    using TCondition = bool (*)(DBusConnection* connection, DBusPendingCall* call);
    static constexpr TClock::time_point NEVER = TClock::time_point::max();

    // To be held by who calls the bus library with the connection.
    std::unique_lock<std::mutex> Hold();

    // To be called once, held, with a new connection before anybody waits on it.
    void Watch(DBusConnection* connection);

    // To be called after sending: takes out what has arrived and nobody waits for, such as replies
    // that came too late and the bus's own signals, which would stay in the connection's queue for
    // ever, and has the reader write what is left to be written.
    void Settle(DBusConnection* connection);

    // Moves messages until the condition holds; false when it does not at the deadline. The
    // condition must hold once the connection is lost.
    bool RunUntil(std::unique_lock<std::mutex>& held, DBusConnection* connection,
                  DBusPendingCall* call, TCondition condition, TClock::time_point deadline);

    // To be called, held, when the connection is closed, so that who waits on it finds it lost.
    void Interrupt();

private:
    static dbus_bool_t AddWatch(DBusWatch* watch, void* self);
    static void RemoveWatch(DBusWatch* watch, void* self);

    void Move(DBusConnection* connection) const;
    void Read(std::unique_lock<std::mutex>& held, DBusConnection* connection,
              TClock::time_point deadline);

    std::mutex m_Mutex;
    std::condition_variable m_RoundDone;
    bool m_HasReader = false;
    TBusWakeup m_Wakeup;
    DBusConnection* m_Watched = nullptr;
    DBusWatch* m_Input = nullptr;  // of the watched connection, until it is lost or closed
    DBusWatch* m_Output = nullptr;
};

#endif
