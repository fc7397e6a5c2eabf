#ifndef NO_BUS_H
#define NO_BUS_H

#include <cstdlib>
#include <string>

// What a program says that cannot reach its bus: where it looked, and who told it to look there.
inline std::string NoBus() {
    const char* const address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (address == nullptr || *address == '\0') {
        return "cannot connect to the system bus: it does not run, or does not admit this user, as "
               "it does root and the group 'ostel' (DBUS_SYSTEM_BUS_ADDRESS names another bus)";
    }
    return "cannot connect to the bus at DBUS_SYSTEM_BUS_ADDRESS, '" + std::string(address) + "'";
}

#endif
