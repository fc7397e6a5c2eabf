// The installed policy, at work on a bus.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "InstalledPrefix.h"
#include "RawPeer.h"
#include "SystemBus.h"
#include "WaitUntil.h"
#include "WithoutRights.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr gid_t GROUP_WITHOUT_MEMBERS = 54321;
const std::string INTERFACE = "com.Kaven.Ostel.Ostel";
const std::string LED = "Device.X_KAVEN_COM_General.LED.State";

using WithoutRights::Runs;
using WithoutRights::TCommand;
using WithoutRights::TestIsRunByRoot;

TCommand operator+(TCommand first, const TCommand& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

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
    const SystemBus bus(m_Prefix, WithoutRights::Group());
    const ChildProcess gateway(bus.On(Runs(Gateway())));
    ASSERT_TRUE(gateway.WaitForOutput("ostel-gateway: ready, ")) << gateway.Errors();
    const ChildProcess watch(bus.On(Runs(Tool() + TCommand{"watch", LED})));
    ASSERT_TRUE(watch.WaitForErrors("watching")) << watch.Errors();
    const TFinished set = bus.Run(Runs(Tool() + TCommand{"set", LED + "=BLINK"}));
    EXPECT_EQ(set.status, 0) << set.errors;
    EXPECT_TRUE(watch.WaitForOutput("PARAM  " + LED + "  BLINK")) << watch.Errors();
}

TEST_F(BusPolicy, LetsNobodyElseOwnAName) {
    const SystemBus bus(m_Prefix, GROUP_WITHOUT_MEMBERS);
    const TFinished owner = bus.Run(Runs(RequestName("com.Kaven.Ostel.OSTEL_DISPATCHER")));
    EXPECT_THAT(owner.errors, HasSubstr("is not allowed to own the service"));
}

TEST_F(BusPolicy, LetsMembersOwnNothingElse) {
    const SystemBus bus(m_Prefix, WithoutRights::Group());
    for (const char* name : {"com.Kaven.Ostel.OSTEL_CLI", "com.Kaven.Ostel.ANOTHER"}) {
        EXPECT_THAT(bus.Run(Runs(RequestName(name))).output, HasSubstr("uint32 1"));
    }
    for (const char* name :
         {"com.Kaven.Other", "com.Kaven.OstelX", "com.Kaven.Ostel", "com.Kaven", "org.example.A"}) {
        EXPECT_THAT(bus.Run(Runs(RequestName(name))).errors,
                    HasSubstr("is not allowed to own the service"))
            << name;
    }
}

TEST_F(BusPolicy, LetsMembersCallApplicationsThroughTheirInterfaceOnly) {
    const SystemBus bus(m_Prefix, WithoutRights::Group());
    const ChildProcess gateway(bus.On(Runs(Gateway())));
    ASSERT_TRUE(gateway.WaitForOutput("ostel-gateway: ready, ")) << gateway.Errors();
    const auto call = [&](const std::string& member) {
        return bus.Run(Runs(Call("com.Kaven.Ostel.OSTEL_DISPATCHER", member)));
    };
    EXPECT_THAT(call("com.Kaven.Ostel.Ostel.GET_PARAM").output, HasSubstr("VALUE"));
    EXPECT_THAT(call("org.freedesktop.DBus.Peer.Ping").errors, HasSubstr("Rejected send message"));
}

// The bus announces names to everybody, so the gateway gets along without.
TEST_F(BusPolicy, LetsMembersNotBecomeMonitors) {
    const SystemBus bus(m_Prefix, WithoutRights::Group());
    EXPECT_TRUE(ChildProcess(bus.On(Runs({"dbus-monitor", "--system"})))
                    .WaitForErrors("unable to enable new-style monitoring"));
    const ChildProcess gateway(bus.On(Runs(Gateway())));
    ASSERT_TRUE(gateway.WaitForOutput("ostel-gateway: ready, ")) << gateway.Errors();
    const ChildProcess watch(bus.On(Runs(Tool() + TCommand{"watch"})));
    ASSERT_TRUE(watch.WaitForErrors("watching")) << watch.Errors();
    EXPECT_EQ(bus.Run(Runs(RequestName("com.Kaven.Ostel.OSTEL_MVA"))).status, 0);
    EXPECT_TRUE(watch.WaitForOutput("APP  OSTEL_MVA  CONNECTED\n"));
    EXPECT_TRUE(watch.WaitForOutput("APP  OSTEL_MVA  DISCONNECTED\n"));
    EXPECT_EQ(watch.Output().find("OSTEL_PRESENCE"), std::string::npos);
}

// A message need not name an interface; a rule that fits all of those would cut off other services.
TEST_F(BusPolicy, LeavesOtherServicesAlone) {
    const SystemBus bus(m_Prefix, GROUP_WITHOUT_MEMBERS);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1);
    RawPeer service;
    service.Answer("Hello", "{}", 0);
    const char* const name = SystemBus::OTHER_SERVICE;
    const dbus_uint32_t flags = 0;
    DBusMessage* const request = dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                              DBUS_INTERFACE_DBUS, "RequestName");
    dbus_message_append_args(request, DBUS_TYPE_STRING, &name, DBUS_TYPE_UINT32, &flags,
                             DBUS_TYPE_INVALID);
    service.Send(request);
    EXPECT_TRUE(WaitUntil([&] {
        DBusMessage* const reply = service.Call(
            dbus_message_new_method_call(SystemBus::OTHER_SERVICE, "/a", nullptr, "Hello"), 5000);
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
        if (!TestIsRunByRoot()) {
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
    EXPECT_THAT(m_Bus.Run(Runs(call)).errors, HasSubstr("Rejected send message"));
}

TEST_F(BusPolicyForTwo, KeepsEventsOfOthersAway) {
    const RawPeer application("OSTEL_KTA");
    EXPECT_EQ(m_Bus.Run(Runs(Signal(INTERFACE + ".FORGED"))).status, 0);
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
    const ChildProcess other(m_Bus.On(Runs(monitor)));
    // They listen from some time on, and do not say from when.
    for (const ChildProcess* monitoring : {&root, &other}) {
        ASSERT_TRUE(WaitUntil([&] {
            application.Send(dbus_message_new_signal("/a", "org.example.Other", "FIRST"));
            return monitoring->Output().find("org.example.Other.FIRST") != std::string::npos;
        }));
    }
    application.Send(dbus_message_new_signal("/a", INTERFACE.c_str(), "SECRET"));
    application.Send(dbus_message_new_signal("/a", "org.example.Other", "LAST"));
    EXPECT_TRUE(root.WaitForOutput("org.example.Other.LAST"));
    EXPECT_TRUE(other.WaitForOutput("org.example.Other.LAST"));
    EXPECT_THAT(root.Output(), HasSubstr(INTERFACE + ".SECRET"));
    EXPECT_THAT(other.Output(), Not(HasSubstr("SECRET")));
}

}  // namespace
