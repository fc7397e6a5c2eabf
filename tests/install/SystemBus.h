#ifndef SYSTEM_BUS_H
#define SYSTEM_BUS_H

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "ChildProcess.h"
#include "InstalledPrefix.h"
#include "WithoutRights.h"

// A bus of the test's own, for every user, that loads the machine's real system-bus configuration
// and the installed policy. Who is in a group is not the test's to change, so the group that the
// policy names is replaced by the number of one that the test can be in.
class SystemBus {
public:
    // A name that some service of the machine has, and that everybody may call.
    static constexpr const char* OTHER_SERVICE = "org.example.Service";

    SystemBus(const InstalledPrefix& prefix, gid_t group) {
        std::filesystem::permissions(m_Dir.Path(), std::filesystem::perms(0755));
        std::ostringstream policy;
        policy << std::ifstream(prefix.File("share/dbus-1/system.d/com.Kaven.Ostel.conf")).rdbuf();
        std::string text = policy.str();
        const std::string name = "group=\"ostel\"";
        EXPECT_NE(text.find(name), std::string::npos);
        text.replace(text.find(name), name.size(), "group=\"" + std::to_string(group) + "\"");
        std::ofstream(m_Dir.File("policy.conf")) << text;
        std::ofstream(m_Dir.File("bus.conf"))
            << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
               "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n<busconfig>"
            << "<include>/usr/share/dbus-1/system.conf</include>"
            << "<policy context=\"default\"><allow own=\"" << OTHER_SERVICE
            << "\"/><allow send_destination=\"" << OTHER_SERVICE << "\"/></policy>"
            << "<include>policy.conf</include>"
            << "</busconfig>\n";
        m_Daemon = std::make_unique<ChildProcess>(WithoutRights::TCommand{
            "dbus-daemon", "--config-file=" + m_Dir.File("bus.conf"), "--nofork", "--nopidfile",
            "--nosyslog", "--address=" + Address(), "--print-address"});
        EXPECT_TRUE(m_Daemon->WaitForOutput("unix:path=")) << m_Daemon->Errors();
    }

    std::string Address() const { return "unix:path=" + m_Dir.File("bus"); }

    // The command with this bus as its system bus.
    WithoutRights::TCommand On(const WithoutRights::TCommand& command) const {
        WithoutRights::TCommand all = {"env", "DBUS_SYSTEM_BUS_ADDRESS=" + Address()};
        all.insert(all.end(), command.begin(), command.end());
        return all;
    }

    TFinished Run(const WithoutRights::TCommand& command) const { return RunProgram(On(command)); }

private:
    TempDir m_Dir;
    std::unique_ptr<ChildProcess> m_Daemon;
};

#endif
