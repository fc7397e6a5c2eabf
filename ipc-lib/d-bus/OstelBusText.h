// Internal, not installed: what may go into a bus message. The bus library ends the process when it
// is handed a name or a text that the bus does not allow, so everything an application passes is
// looked at here first.
#ifndef OSTEL_BUS_TEXT_H
#define OSTEL_BUS_TEXT_H

#include <dbus/dbus.h>

#include <string>

namespace OstelBusText {

inline bool HasNul(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

inline bool IsBusName(const std::string& name) {
    return !HasNul(name) && dbus_validate_bus_name(name.c_str(), nullptr);
}

inline bool IsObjectPath(const std::string& path) {
    return !HasNul(path) && dbus_validate_path(path.c_str(), nullptr);
}

inline bool IsMember(const std::string& name) {
    return !HasNul(name) && dbus_validate_member(name.c_str(), nullptr);
}

// Appends a text as the message's next argument; false when the bus cannot carry it. The bus ends
// the connection of whoever sends a message of more than 32 MiB, unless it is configured otherwise;
// what is kept free is more than the header can take.
inline bool Append(DBusMessageIter& arguments, const std::string& text) {
    constexpr std::size_t longest = 32 * 1024 * 1024 - 8192;
    if (text.size() > longest || HasNul(text) || !dbus_validate_utf8(text.c_str(), nullptr)) {
        return false;
    }
    const char* const characters = text.c_str();
    return dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &characters);
}

}  // namespace OstelBusText

#endif
