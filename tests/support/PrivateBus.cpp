#include "PrivateBus.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace {

const char* const CONFIGURATION_HEAD = R"(<!DOCTYPE busconfig PUBLIC
  "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
  "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true"/>
    <allow receive_type="method_call"/>
    <allow receive_type="signal"/>
    <allow receive_requested_reply="true"/>
    <allow eavesdrop="true"/>
  </policy>
)";

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Waits until the other end has written or is gone.
bool ReadSomething(int descriptor) {
    std::array<char, 256> text{};
    ssize_t size = 0;
    do {
        size = read(descriptor, text.data(), text.size());
    } while (size < 0 && errno == EINTR);
    return size > 0;
}

}  // namespace

PrivateBus::PrivateBus() : m_Address("unix:path=" + m_Directory.File("bus")), m_Daemon(-1) {
    std::ofstream(m_Directory.File("bus.conf"))
        << CONFIGURATION_HEAD << "  <listen>" << m_Address << "</listen>\n</busconfig>\n";
    Start();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", m_Address.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    Kill();
}

void PrivateBus::Start() {
    // The daemon writes its address once it listens.
    std::array<int, 2> ready{};
    if (pipe2(ready.data(), 0) != 0) {
        Fail("pipe2");
    }
    const std::string configuration = "--config-file=" + m_Directory.File("bus.conf");
    const std::string printAddress = "--print-address=" + std::to_string(ready[1]);
    m_Daemon = fork();
    if (m_Daemon == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(ready[0]);
        execlp("dbus-daemon", "dbus-daemon", configuration.c_str(), printAddress.c_str(),
               "--nofork", "--nosyslog", "--nopidfile", nullptr);
        _exit(127);
    }
    close(ready[1]);
    const bool listens = m_Daemon > 0 && ReadSomething(ready[0]);
    close(ready[0]);
    if (!listens) {
        Kill();
        throw std::runtime_error("dbus-daemon does not start");
    }
}

void PrivateBus::Kill() {
    if (m_Daemon > 0) {
        kill(m_Daemon, SIGKILL);
        waitpid(m_Daemon, nullptr, 0);
        m_Daemon = -1;
    }
    std::error_code ignored;
    std::filesystem::remove(m_Directory.File("bus"), ignored);
}
