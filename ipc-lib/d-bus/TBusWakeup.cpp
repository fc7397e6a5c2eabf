#include "TBusWakeup.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>

// Without a descriptor left nothing is woken; waits then last until their timeout.
TBusWakeup::TBusWakeup() : m_Event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

TBusWakeup::~TBusWakeup() {
    if (m_Event >= 0) {
        close(m_Event);
    }
}

bool TBusWakeup::WaitForInput(DBusConnection* connection, int timeoutMs) const {
    int descriptor = -1;
    short events = POLLIN;
    if (connection != nullptr) {
        if (!dbus_connection_get_is_connected(connection) ||
            !dbus_connection_get_unix_fd(connection, &descriptor)) {
            descriptor = -1;
        }
        if (dbus_connection_has_messages_to_send(connection)) {
            events |= POLLOUT;
        }
    }
    std::array<pollfd, 2> sources{{{descriptor, events, 0}, {m_Event, POLLIN, 0}}};
    return poll(sources.data(), sources.size(), timeoutMs) > 0 && sources[1].revents != 0;
}

void TBusWakeup::Wake() const {
    eventfd_write(m_Event, 1);
}

void TBusWakeup::Reset() const {
    eventfd_t ignored = 0;
    eventfd_read(m_Event, &ignored);
}
