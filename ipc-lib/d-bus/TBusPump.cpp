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
                        const TCondition& condition, TClock::time_point deadline) {
    while (!condition()) {
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
    dbus_connection_read_write(connection, 0);
    DispatchAll(connection);
    m_RoundDone.notify_all();
}
