#include "TBusPump.h"

#include <algorithm>

namespace {

// Rounded up, or the last millisecond would be spent spinning.
int MillisecondsUntil(TBusPump::TClock::time_point deadline) {
    if (deadline == TBusPump::NEVER) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - TBusPump::TClock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

bool DispatchAll(DBusConnection* connection) {
    bool dispatched = false;
    while (dbus_connection_get_dispatch_status(connection) == DBUS_DISPATCH_DATA_REMAINS) {
        dbus_connection_dispatch(connection);
        dispatched = true;
    }
    return dispatched;
}

}  // namespace

std::unique_lock<std::mutex> TBusPump::Hold() {
    return std::unique_lock<std::mutex>(m_Mutex);
}

// Without memory there are no watches, and Move does without.
void TBusPump::Watch(DBusConnection* connection) {
    m_Watched = connection;
    dbus_connection_set_watch_functions(connection, &AddWatch, &RemoveWatch, nullptr, this,
                                        nullptr);
}

dbus_bool_t TBusPump::AddWatch(DBusWatch* watch, void* self) {
    auto* const pump = static_cast<TBusPump*>(self);
    const bool isInput = (dbus_watch_get_flags(watch) & DBUS_WATCH_READABLE) != 0;
    (isInput ? pump->m_Input : pump->m_Output) = watch;
    return true;
}

void TBusPump::RemoveWatch(DBusWatch* watch, void* self) {
    auto* const pump = static_cast<TBusPump*>(self);
    (watch == pump->m_Input ? pump->m_Input : pump->m_Output) = nullptr;
}

void TBusPump::Settle(DBusConnection* connection) {
    const bool dispatched = DispatchAll(connection);
    if (m_HasReader && (dispatched || dbus_connection_has_messages_to_send(connection))) {
        m_Wakeup.Wake();
    }
}

void TBusPump::Interrupt() {
    m_Wakeup.Wake();
}

bool TBusPump::RunUntil(std::unique_lock<std::mutex>& held, DBusConnection* connection,
                        DBusPendingCall* call, TCondition condition, TClock::time_point deadline) {
    while (!condition(connection, call)) {
        if (TClock::now() >= deadline) {
            return false;
        }
        if (!m_HasReader) {
            Read(held, connection, deadline);
        } else if (deadline == NEVER) {
            m_RoundDone.wait(held);
        } else {
            m_RoundDone.wait_until(held, deadline);
        }
    }
    return true;
}

// The connection has been polled, and its socket does not block: the bus library's own reading
// would only poll once more. Who has waited on a connection that is closed by now must not take
// what the next one has.
void TBusPump::Move(DBusConnection* connection) const {
    if (connection != m_Watched || m_Input == nullptr) {
        dbus_connection_read_write(connection, 0);
        return;
    }
    dbus_watch_handle(m_Input, DBUS_WATCH_READABLE);
    // Reading may have found the connection lost.
    if (m_Output != nullptr && dbus_connection_has_messages_to_send(connection)) {
        dbus_watch_handle(m_Output, DBUS_WATCH_WRITABLE);
    }
}

void TBusPump::Read(std::unique_lock<std::mutex>& held, DBusConnection* connection,
                    TClock::time_point deadline) {
    m_HasReader = true;
    held.unlock();
    const bool isWoken = m_Wakeup.WaitForInput(connection, MillisecondsUntil(deadline));
    held.lock();
    m_HasReader = false;
    if (isWoken) {
        m_Wakeup.Reset();
    }
    Move(connection);
    DispatchAll(connection);
    m_RoundDone.notify_all();
}
