#include "BusWatch.h"

#include <dbus/dbus.h>

#include <stdexcept>

namespace {

const std::string NAME_PREFIX = "com.Kaven.Ostel.";

}  // namespace

void TBusWatch::TClose::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

TBusWatch::TBusWatch() : m_Connection(dbus_bus_get_private(DBUS_BUS_SYSTEM, nullptr)) {
    if (m_Connection == nullptr) {
        throw std::runtime_error(
            "cannot connect to the bus (DBUS_SYSTEM_BUS_ADDRESS names another than the system's)");
    }
    dbus_connection_set_exit_on_disconnect(m_Connection.get(), false);
}

bool TBusWatch::IsThere(const std::string& id) const {
    return dbus_bus_name_has_owner(m_Connection.get(), (NAME_PREFIX + id).c_str(), nullptr) != 0;
}

int TBusWatch::Descriptor() const {
    int descriptor = -1;
    dbus_connection_get_unix_fd(m_Connection.get(), &descriptor);
    return descriptor;
}

bool TBusWatch::IsConnected() const {
    dbus_connection_read_write(m_Connection.get(), 0);
    // What comes is of no interest, and would pile up.
    while (dbus_connection_dispatch(m_Connection.get()) == DBUS_DISPATCH_DATA_REMAINS) {
    }
    return dbus_connection_get_is_connected(m_Connection.get()) != 0;
}
