// Internal, not installed: the names and messages that the sources of TOstelDBus share.
#ifndef OSTEL_BUS_MESSAGES_H
#define OSTEL_BUS_MESSAGES_H

#include <dbus/dbus.h>

#include <stdexcept>
#include <string>

#include "zt_logging.h"

namespace OstelBusMessages {

// In the log lines of all these sources.
inline const char* const MODULE = "ipc-lib/d-bus/TOstelDBus";

inline const char* const BUS_NAME_PREFIX = "com.Kaven.Ostel.";
inline const char* const OBJECT_PATH_PREFIX = "/com/Kaven/Ostel/";
inline const char* const INTERFACE_NAME = "com.Kaven.Ostel.Ostel";

// Null when one of the names is not allowed on the bus.
DBusMessage* NewMethodCall(const std::string& serverId, const std::string& methodName);

[[noreturn]] inline void Fail(const char* text) {
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", text);
    throw std::runtime_error(text);
}

}  // namespace OstelBusMessages

#endif
