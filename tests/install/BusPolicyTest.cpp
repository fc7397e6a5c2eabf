// The installed policy on a bus of the test's own that loads the machine's real system-bus
// configuration and this policy. Who is in the group is decided by the bus, so the group's name is
// replaced by the number of one that the test can be in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "InstalledPrefix.h"
#include "RawPeer.h"
#include "WaitUntil.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr gid_t NOBODY = 65534;
constexpr gid_t GROUP_WITHOUT_MEMBERS = 54321;
const std::string SYSTEM_CONFIGURATION = "/usr/share/dbus-1/system.conf";
const char* const OTHER_SERVICE = "org.example.Service";
const std::string INTERFACE = "com.Kaven.Ostel.Ostel";
const std::string LED = "Device.X_KAVEN_COM_General.LED.State";

bool IsRoot() {
    return getuid() == 0;
}

using TCommand = std::vector<std::string>;

TCommand operator+(TCommand first, const TCommand& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// An ordinary user: who runs the test, or, when that is root, somebody with no rights.
TCommand Ordinary() {
    const std::string nobody = std::to_string(NOBODY);
    return IsRoot()
               ? TCommand{"setpriv", "--reuid=" + nobody, "--regid=" + nobody, "--clear-groups"}
               : TCommand{};
}

gid_t OrdinaryGroup() {
    return IsRoot() ? NOBODY : getgid();
}

class SystemBus {
public:
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
            << "<include>" << SYSTEM_CONFIGURATION << "</include>"
            << "<policy context=\"default\"><allow own=\"" << OTHER_SERVICE
            << "\"/><allow send_destination=\"" << OTHER_SERVICE << "\"/></policy>"
            << "<include>policy.conf</include>"
            << "</busconfig>\n";
        m_Daemon = std::make_unique<ChildProcess>(
            TCommand{"dbus-daemon", "--config-file=" + m_Dir.File("bus.conf"), "--nofork",
                     "--nopidfile", "--nosyslog", "--address=" + Address(), "--print-address"});
        EXPECT_TRUE(m_Daemon->WaitForOutput("unix:path=")) << m_Daemon->Errors();
    }

    std::string Address() const { return "unix:path=" + m_Dir.File("bus"); }

    // The command with this bus as its system bus.
    TCommand On(const TCommand& command) const {
        return TCommand{"env", "DBUS_SYSTEM_BUS_ADDRESS=" + Address()} + command;
    }

    TFinished Run(const TCommand& command) const { return RunProgram(On(command)); }

private:
    TempDir m_Dir;
    std::unique_ptr<ChildProcess> m_Daemon;
};

TCommand RequestName(const std::string& name) {
    return {"dbus-send",
            "--system",
            "--print-reply",
            "--dest=org.freedesktop.DBus",
            "/",
            "org.freedesktop.DBus.RequestName",
            "string:" + name,
            "uint32:4"};
}

TCommand Call(const std::string& name, const std::string& member) {
    return {"dbus-send",
            "--system",
            "--print-reply",
            "--dest=" + name,
            "/a",
            member,
            R"(string:{"NAME":"Device.Time.Enable"})"};
}

TCommand Signal(const std::string& member) {
    return {"dbus-send", "--system", "--type=signal", "/a", member, "string:{}"};
}

class BusPolicy : public testing::Test {
protected:
    // The installed gateway, with a state that whoever runs it can write.
    TCommand Gateway() const {
        std::filesystem::permissions(m_State.Path(), std::filesystem::perms(0777));
        return {m_Prefix.File("bin/ostel-gateway"), "--state", m_State.File("state.sqlite")};
    }
    TCommand Tool() const { return {m_Prefix.File("bin/ostelcli")}; }

    InstalledPrefix m_Prefix;
    TempDir m_State;
};

TEST_F(BusPolicy, LetsMembersOfTheGroupBeApplications) {
    const SystemBus bus(m_Prefix, OrdinaryGroup());
    const ChildProcess gateway(bus.On(Ordinary() + Gateway()));
    ASSERT_TRUE(gateway.WaitForOutput("ostel-gateway: ready, ")) << gateway.Errors();
    const ChildProcess watch(bus.On(Ordinary() + Tool() + TCommand{"watch", LED}));
    ASSERT_TRUE(watch.WaitForErrors("watching")) << watch.Errors();
    const TFinished set = bus.Run(Ordinary() + Tool() + TCommand{"set", LED + "=BLINK"});
    EXPECT_EQ(set.status, 0) << set.errors;
    EXPECT_TRUE(watch.WaitForOutput("PARAM  " + LED + "  BLINK")) << watch.Errors();
}

TEST_F(BusPolicy, LetsNobodyElseOwnAName) {
    const SystemBus bus(m_Prefix, GROUP_WITHOUT_MEMBERS);
    const TFinished owner = bus.Run(Ordinary() + RequestName("com.Kaven.Ostel.OSTEL_DISPATCHER"));
    EXPECT_THAT(owner.errors, HasSubstr("is not allowed to own the service"));
}

TEST_F(BusPolicy, LetsMembersOwnNothingElse) {
    const SystemBus bus(m_Prefix, OrdinaryGroup());
    for (const char* name : {"com.Kaven.Ostel.OSTEL_CLI", "com.Kaven.Ostel.ANOTHER"}) {
        EXPECT_THAT(bus.Run(Ordinary() + RequestName(name)).output, HasSubstr("uint32 1"));
    }
    for (const char* name : {"com.Kaven.Other", "com.Kaven.OstelX", "com.Kaven", "org.example.A"}) {
        EXPECT_THAT(bus.Run(Ordinary() + RequestName(name)).errors,
                    HasSubstr("is not allowed to own the service"))
            << name;
    }
}

TEST_F(BusPolicy, LetsMembersCallApplicationsThroughTheirInterfaceOnly) {
    const SystemBus bus(m_Prefix, OrdinaryGroup());
    const ChildProcess gateway(bus.On(Ordinary() + Gateway()));
    ASSERT_TRUE(gateway.WaitForOutput("ostel-gateway: ready, ")) << gateway.Errors();
    const auto call = [&](const std::string& member) {
        return bus.Run(Ordinary() + Call("com.Kaven.Ostel.OSTEL_DISPATCHER", member));
    };
    EXPECT_THAT(call("com.Kaven.Ostel.Ostel.GET_PARAM").output, HasSubstr("VALUE"));
    EXPECT_THAT(call("org.freedesktop.DBus.Peer.Ping").errors, HasSubstr("Rejected send message"));
}

TEST_F(BusPolicy, LeavesWatchingTheBusToRoot) {
    const SystemBus bus(m_Prefix, OrdinaryGroup());
    const ChildProcess gateway(bus.On(Ordinary() + Gateway()));
    EXPECT_TRUE(gateway.WaitForOutput("ostel-gateway: ready, ")) << gateway.Errors();
    EXPECT_THAT(gateway.Errors(), HasSubstr("are not announced"));
}

// A message need not name an interface; a rule that fits all of those would cut off other services.
TEST_F(BusPolicy, LeavesOtherServicesAlone) {
    const SystemBus bus(m_Prefix, GROUP_WITHOUT_MEMBERS);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1);
    RawPeer service;
    service.Answer("Hello", "{}", 0);
    const char* const name = OTHER_SERVICE;
    const dbus_uint32_t flags = 0;
    DBusMessage* const request = dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                              DBUS_INTERFACE_DBUS, "RequestName");
    dbus_message_append_args(request, DBUS_TYPE_STRING, &name, DBUS_TYPE_UINT32, &flags,
                             DBUS_TYPE_INVALID);
    service.Send(request);
    EXPECT_TRUE(WaitUntil([&] {
        DBusMessage* const reply =
            service.Call(dbus_message_new_method_call(OTHER_SERVICE, "/a", nullptr, "Hello"), 5000);
        if (reply != nullptr) {
            dbus_message_unref(reply);
        }
        return reply != nullptr;
    }));
}

// Two users at one bus; only root can be both.
class BusPolicyForTwo : public BusPolicy {
protected:
    void SetUp() override {
        if (!IsRoot()) {
            GTEST_SKIP() << "takes root, to be two users at once";
        }
        setenv("DBUS_SYSTEM_BUS_ADDRESS", m_Bus.Address().c_str(), 1);
    }

    SystemBus m_Bus{m_Prefix, GROUP_WITHOUT_MEMBERS};
};

TEST_F(BusPolicyForTwo, LetsRootBeAnApplicationAndWatchTheBus) {
    const ChildProcess gateway(m_Bus.On(Gateway()));
    ASSERT_TRUE(gateway.WaitForOutput("ostel-gateway: ready, ")) << gateway.Errors();
    EXPECT_EQ(gateway.Errors(), "");
    EXPECT_EQ(m_Bus.Run(Tool() + TCommand{"get", LED}).output, LED + "  ON\n");
}

TEST_F(BusPolicyForTwo, KeepsCallsOfOthersAway) {
    RawPeer application("OSTEL_KTA");
    application.Answer("GET_PARAM", "{}", 0);
    const TCommand call = Call("com.Kaven.Ostel.OSTEL_KTA", "com.Kaven.Ostel.Ostel.GET_PARAM");
    EXPECT_EQ(m_Bus.Run(call).status, 0);
    EXPECT_THAT(m_Bus.Run(Ordinary() + call).errors, HasSubstr("Rejected send message"));
}

TEST_F(BusPolicyForTwo, KeepsEventsOfOthersAway) {
    const RawPeer application("OSTEL_KTA");
    EXPECT_EQ(m_Bus.Run(Ordinary() + Signal(INTERFACE + ".FORGED")).status, 0);
    EXPECT_EQ(m_Bus.Run(Signal(INTERFACE + ".GENUINE")).status, 0);
    ASSERT_TRUE(application.WaitForMember("GENUINE"));
    for (const RawPeer::TMessage& message : application.Received()) {
        EXPECT_NE(message.member, "FORGED");
    }
}

TEST_F(BusPolicyForTwo, KeepsEventsFromOthers) {
    RawPeer application("OSTEL_KTA");
    const TCommand monitor{"gdbus",         "monitor", "--address",
                           m_Bus.Address(), "--dest",  "com.Kaven.Ostel.OSTEL_KTA"};
    const ChildProcess root(m_Bus.On(monitor));
    const ChildProcess other(m_Bus.On(Ordinary() + monitor));
    ASSERT_TRUE(root.WaitForOutput("is owned by"));
    ASSERT_TRUE(other.WaitForOutput("is owned by"));
    application.Send(dbus_message_new_signal("/a", INTERFACE.c_str(), "SECRET"));
    application.Send(dbus_message_new_signal("/a", "org.example.Other", "LAST"));
    EXPECT_TRUE(root.WaitForOutput("org.example.Other.LAST"));
    EXPECT_TRUE(other.WaitForOutput("org.example.Other.LAST"));
    EXPECT_THAT(root.Output(), HasSubstr(INTERFACE + ".SECRET"));
    EXPECT_THAT(other.Output(), Not(HasSubstr("SECRET")));
}

}  // namespace
