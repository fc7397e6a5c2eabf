#ifndef RAW_BUS_H
#define RAW_BUS_H

#include <dbus/dbus.h>

#include <memory>
#include <string>

// The bus library as it is: what everything here is measured against.
namespace RawBus {

struct TClose {
    void operator()(DBusConnection* connection) const;
};
using TConnection = std::unique_ptr<DBusConnection, TClose>;

struct TUnref {
    void operator()(DBusMessage* message) const;
};
using TMessage = std::unique_ptr<DBusMessage, TUnref>;

TConnection Connect();
void TakeName(DBusConnection* connection, const std::string& id);

// Sends a call of the application's GET_PARAM, waits, and takes the text out of the answer.
std::string Call(DBusConnection* connection, const std::string& id, const std::string& request);

}  // namespace RawBus

#endif
