#include <stdexcept>

#include "TOstelDBus.h"
#include "zt_logging.h"

TOstelDBus::TBusMessage::TBusMessage(DBusMessage* message) : m_Message(message) {
    if (message == nullptr) {
        throw std::runtime_error("DBusMessage pointer is NULL!");
    }
}

TOstelDBus::TBusMessage& TOstelDBus::TBusMessage::operator=(DBusMessage* message) {
    if (message == nullptr) {
        throw std::runtime_error("DBusMessage pointer is NULL!");
    }
    dbus_message_unref(m_Message);
    m_Message = message;
    return *this;
}

TOstelDBus::TBusMessage::~TBusMessage() {
    dbus_message_unref(m_Message);
}

int TOstelDBus::TBusMessage::GetType() const {
    return dbus_message_get_type(m_Message);
}

TOstelDBus::TBusError::TBusError() : m_Error() {
    dbus_error_init(&m_Error);
}

TOstelDBus::TBusError::~TBusError() {
    dbus_error_free(&m_Error);
}

void TOstelDBus::TBusError::Check(const std::string& context) const {
    if (!dbus_error_is_set(&m_Error)) {
        return;
    }
    const std::string text = context + " - " + m_Error.message;
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", text.c_str());
    throw std::runtime_error(text);
}
