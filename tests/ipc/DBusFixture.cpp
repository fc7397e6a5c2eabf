#include "DBusFixture.h"

#include "ChildProcess.h"

bool DBus::HasOwner(const std::string& name) {
    return RunProgram({"dbus-send", "--system", "--print-reply=literal",
                       "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                       "org.freedesktop.DBus.NameHasOwner", "string:" + name})
               .output.find("true") != std::string::npos;
}
