#include "NameWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "TOstelIpc.h"

namespace {

const std::string PREFIX = "com.Kaven.Ostel.";
const char* const RULE =
    "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
    "arg0namespace='com.Kaven.Ostel'";

class TError {
public:
    TError() { dbus_error_init(&m_Error); }
    TError(const TError&) = delete;
    TError& operator=(const TError&) = delete;
    ~TError() { dbus_error_free(&m_Error); }

    DBusError* operator()() { return &m_Error; }
    void Check() const {
        if (dbus_error_is_set(&m_Error)) {
            throw std::runtime_error(m_Error.message);
        }
    }

private:
    DBusError m_Error{};
};

}  // namespace

void TNameWatch::TCloser::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

TNameWatch::TNameWatch(TNotice notice) : m_Notice(std::move(notice)), m_Stop(-1) {
    TError error;
    m_Connection.reset(dbus_bus_get_private(DBUS_BUS_SYSTEM, error()));
    error.Check();
    // A bus that ends is no reason to end the gateway here: its other connections see it as well.
    dbus_connection_set_exit_on_disconnect(m_Connection.get(), false);
    dbus_bus_add_match(m_Connection.get(), RULE, error());
    error.Check();
    m_Stop = eventfd(0, EFD_CLOEXEC);
    if (m_Stop < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    m_Thread = std::thread(&TNameWatch::Watch, this);
}

TNameWatch::~TNameWatch() {
    eventfd_write(m_Stop, 1);
    m_Thread.join();
    close(m_Stop);
}

void TNameWatch::Watch() {
    std::array<pollfd, 2> ends{};
    dbus_connection_get_unix_fd(m_Connection.get(), &ends[0].fd);
    ends[0].events = POLLIN;
    ends[1] = {m_Stop, POLLIN, 0};
    do {
        HandleReceived();
    } while (dbus_connection_get_is_connected(m_Connection.get()) &&
             (poll(ends.data(), ends.size(), -1) > 0 || errno == EINTR) && ends[1].revents == 0);
}

void TNameWatch::HandleReceived() {
    dbus_connection_read_write(m_Connection.get(), 0);
    while (DBusMessage* const message = dbus_connection_pop_message(m_Connection.get())) {
        Handle(message);
        dbus_message_unref(message);
    }
}

void TNameWatch::Handle(DBusMessage* message) const {
    const char* name = nullptr;
    const char* oldOwner = nullptr;
    const char* newOwner = nullptr;
    if (!dbus_message_is_signal(message, DBUS_INTERFACE_DBUS, "NameOwnerChanged") ||
        !dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING,
                               &oldOwner, DBUS_TYPE_STRING, &newOwner, DBUS_TYPE_INVALID) ||
        std::string(name).compare(0, PREFIX.size(), PREFIX) != 0) {
        return;
    }
    const std::string id = std::string(name).substr(PREFIX.size());
    // An application that takes over another one's name is both.
    if (*oldOwner != '\0') {
        m_Notice(TOstelIpc::ON_APP_DISCONNECTED_EVENT, id);
    }
    if (*newOwner != '\0') {
        m_Notice(TOstelIpc::ON_APP_CONNECTED_EVENT, id);
    }
}
