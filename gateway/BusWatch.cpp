#include "BusWatch.h"

#include <dbus/dbus.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "NoBus.h"

namespace {

const std::string NAME_PREFIX = "com.Kaven.Ostel.";

}  // namespace

void TBusWatch::TClose::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

TBusWatch::TBusWatch() : m_Connection(dbus_bus_get_private(DBUS_BUS_SYSTEM, nullptr)) {
    if (m_Connection == nullptr) {
        throw std::runtime_error(NoBus());
    }
    dbus_connection_set_exit_on_disconnect(m_Connection.get(), false);
}

bool TBusWatch::IsThere(const std::string& id) const {
    return dbus_bus_name_has_owner(m_Connection.get(), (NAME_PREFIX + id).c_str(), nullptr) != 0;
}

bool TBusWatch::WaitUntilGone(const std::string& id, std::chrono::milliseconds limit) const {
    const std::string rule =
        "sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" + NAME_PREFIX + id + "'";
    dbus_bus_add_match(m_Connection.get(), rule.c_str(), nullptr);
    const auto end = std::chrono::steady_clock::now() + limit;
    bool isThere = IsThere(id);
    while (isThere && std::chrono::steady_clock::now() < end) {
        // The word may have come with the last answer already.
        if (!DropReceived()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
            // Less than nothing would be for ever.
            dbus_connection_read_write(m_Connection.get(),
                                       static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        }
        isThere = IsThere(id);
    }
    dbus_bus_remove_match(m_Connection.get(), rule.c_str(), nullptr);
    return !isThere;
}

int TBusWatch::Descriptor() const {
    int descriptor = -1;
    dbus_connection_get_unix_fd(m_Connection.get(), &descriptor);
    return descriptor;
}

bool TBusWatch::IsConnected() const {
    dbus_connection_read_write(m_Connection.get(), 0);
    DropReceived();
    return dbus_connection_get_is_connected(m_Connection.get()) != 0;
}

// What comes is of no interest, and would pile up. True when there was something.
bool TBusWatch::DropReceived() const {
    bool dropped = false;
    while (dbus_connection_get_dispatch_status(m_Connection.get()) == DBUS_DISPATCH_DATA_REMAINS) {
        dbus_connection_dispatch(m_Connection.get());
        dropped = true;
    }
    return dropped;
}
