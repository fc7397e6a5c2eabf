#include "DBusFixture.h"

#include <atomic>
#include <cstdint>

#include "ChildProcess.h"
#include "PrivateMember.h"

struct TDispatchTimeout {
    friend std::atomic<std::int32_t> TOstelDBus::*MemberOf(TDispatchTimeout);
};
template struct PrivateMember<TDispatchTimeout, &TOstelDBus::m_DispatchTimeoutMs>;

void TOpenDBus::SetDispatchTimeout(std::chrono::milliseconds timeout) {
    this->*MemberOf(TDispatchTimeout()) = static_cast<std::int32_t>(timeout.count());
}

bool DBus::HasOwner(const std::string& name) {
    return RunProgram({"dbus-send", "--system", "--print-reply=literal",
                       "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                       "org.freedesktop.DBus.NameHasOwner", "string:" + name})
               .output.find("true") != std::string::npos;
}
