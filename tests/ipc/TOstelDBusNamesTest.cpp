// Connecting, names on the bus, and the life cycle.
#include "BinaryLayout.h"
#include "ChildProcess.h"
#include "DBusFixture.h"

struct TServerConnection {
    friend std::size_t OffsetOf(TServerConnection);
};
struct TClientConnection {
    friend std::size_t OffsetOf(TClientConnection);
};
struct TBusName {
    friend std::size_t OffsetOf(TBusName);
};
struct TInterfaceName {
    friend std::size_t OffsetOf(TInterfaceName);
};
struct TObjectPath {
    friend std::size_t OffsetOf(TObjectPath);
};
struct TConnected {
    friend std::size_t OffsetOf(TConnected);
};
struct TDispatchTimeout {
    friend std::size_t OffsetOf(TDispatchTimeout);
};

template struct MemberOffset<TServerConnection, &TOstelDBus::m_ServerConnection>;
template struct MemberOffset<TClientConnection, &TOstelDBus::m_ClientConnection>;
template struct MemberOffset<TBusName, &TOstelDBus::m_BusName>;
template struct MemberOffset<TInterfaceName, &TOstelDBus::m_InterfaceName>;
template struct MemberOffset<TObjectPath, &TOstelDBus::m_ObjectPath>;
template struct MemberOffset<TConnected, &TOstelDBus::m_Connected>;
template struct MemberOffset<TDispatchTimeout, &TOstelDBus::m_DispatchTimeoutMs>;

namespace {

using testing::Contains;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

std::int32_t DispatchTimeoutMs(const TOpenDBus& bus) {
    std::int32_t timeout = 0;
    std::memcpy(&timeout, reinterpret_cast<const char*>(&bus) + OffsetOf(TDispatchTimeout()),
                sizeof(timeout));
    return timeout;
}

TEST_F(DBus, InitConnectsAndOwnsTheName) {
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    EXPECT_TRUE(HasOwner("com.Kaven.Ostel.OSTEL_KTA"));
    EXPECT_FALSE(HasOwner("com.Kaven.Ostel.OSTEL_KTA_CLIENT"));
}

TEST_F(DBus, SecondInitWithTheSameNameDoesNothing) {
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    RecordingLog::Clear();
    bus.Init("OSTEL_KTA");
    EXPECT_THAT(RecordingLog::Texts(3),
                testing::ElementsAre("The same ID (OSTEL_KTA), do nothing."));
    EXPECT_THAT(RecordingLog::Texts(6), testing::ElementsAre(HasSubstr("[Init]: OSTEL_KTA")));
    EXPECT_TRUE(HasOwner("com.Kaven.Ostel.OSTEL_KTA"));
}

TEST_F(DBus, RequestsTheNameWithFlagsThree) {
    ChildProcess monitor({"dbus-monitor", "--system", "member='RequestName'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    EXPECT_TRUE(monitor.WaitForOutput("string \"com.Kaven.Ostel.OSTEL_KTA\"\n   uint32 3"))
        << monitor.Output();
}

TEST_F(DBus, AddsTheMatchRuleOfTheInterface) {
    ChildProcess monitor({"dbus-monitor", "--system", "member='AddMatch'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    TOpenDBus bus;
    bus.Connect();
    EXPECT_TRUE(monitor.WaitForOutput("string \"interface='com.Kaven.Ostel.Ostel'\""))
        << monitor.Output();
}

TEST_F(DBus, ChangingTheNameReleasesTheOldOnes) {
    ChildProcess monitor({"dbus-monitor", "--system", "member='ReleaseName'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    TOpenDBus bus;
    bus.Init("A");
    bus.Run();
    bus.Init("B");
    EXPECT_TRUE(bus.IsRunning());
    EXPECT_TRUE(HasOwner("com.Kaven.Ostel.B"));
    EXPECT_FALSE(HasOwner("com.Kaven.Ostel.A"));
    EXPECT_TRUE(monitor.WaitForOutput("string \"com.Kaven.Ostel.A_CLIENT\"")) << monitor.Output();
    // First its own on the connection that serves calls, then the other on the one that sends them.
    EXPECT_THAT(monitor.Output(),
                ContainsRegex("sender=:1.1 [^\n]*\n   string \"com.Kaven.Ostel.A\"\n"
                              "[^\n]*sender=:1.2 [^\n]*\n   string \"com.Kaven.Ostel.A_CLIENT\""));
    RawPeer peer;
    EXPECT_EQ(CallAs(peer, "B", "Unknown", "").second, -1);
}

TEST_F(DBus, ANameThatIsTakenIsOnlyLogged) {
    // A peer that does not allow replacement keeps its name.
    const RawPeer owner("OSTEL_KTA");
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    EXPECT_EQ(RecordingLog::Count(2, "The 'com.Kaven.Ostel.OSTEL_KTA' name is already taken!"), 1);
    bus.Run();
    EXPECT_TRUE(bus.IsRunning());
}

TEST_F(DBus, TheLaterOfTwoProcessesWithOneNameOwnsIt) {
    TOpenDBus first;
    TOpenDBus second;
    first.Init("OSTEL_KTA");
    second.Init("OSTEL_KTA");
    TCallHandler handler([](const std::string&, std::string& reply) {
        reply = "second";
        return 0;
    });
    second.AddMethodHandler("WHO", &handler);
    first.Run();
    second.Run();
    RawPeer peer;
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "WHO", "").first, "second");
    EXPECT_TRUE(RecordingLog::Texts(2).empty());
}

TEST_F(DBus, InitGetsOverAConnectionThatHadNoName) {
    TOpenDBus bus;
    bus.SendEvent("E", "connects under the process id");
    bus.Init("OSTEL_KTA");
    EXPECT_TRUE(HasOwner("com.Kaven.Ostel.OSTEL_KTA"));
    EXPECT_TRUE(RecordingLog::Texts(2).empty());
    bus.Disconnect();
    TOpenDBus unnamed;
    unnamed.Connect();
    unnamed.ReleaseBusName();
    unnamed.Disconnect();
    unnamed.Disconnect();
}

TEST_F(DBus, WithoutAConnectionNamesAreLeftAlone) {
    TOpenDBus bus;
    bus.RegisterBusName();
    bus.ReleaseBusName();
    EXPECT_THAT(RecordingLog::Lines(), testing::IsEmpty());
}

// Kept: connecting always adds the process id, and only another name undoes it.
TEST_F(DBus, ReconnectsUnderItsNameAndTheProcessId) {
    ChildProcess monitor({"dbus-monitor", "--system", "member='ReleaseName'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    RawPeer peer;
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    bus.Disconnect();
    bus.SendEvent("E", "d");
    ASSERT_TRUE(peer.WaitForMember("E"));
    EXPECT_EQ(peer.Received().back().path, "/com/Kaven/Ostel/OSTEL_KTA" + std::to_string(getpid()));
    bus.Init("OSTEL_KTA");
    EXPECT_EQ(RecordingLog::Count(3, "The same ID (OSTEL_KTA), do nothing."), 1);
    EXPECT_FALSE(HasOwner("com.Kaven.Ostel.OSTEL_KTA"));
    bus.Init("OSTEL_MVA");
    EXPECT_TRUE(HasOwner("com.Kaven.Ostel.OSTEL_MVA"));
    const std::string name = "com.Kaven.Ostel.OSTEL_KTA" + std::to_string(getpid());
    EXPECT_TRUE(monitor.WaitForOutput("string \"" + name + "\"")) << monitor.Output();
}

TEST_F(DBus, UnnamedSenderHasItsProcessIdInThePath) {
    RawPeer peer;
    TOpenDBus bus;
    bus.SendEvent("E", "d");
    ASSERT_TRUE(peer.WaitForMember("E"));
    const std::string path = "/com/Kaven/Ostel/" + std::to_string(getpid());
    EXPECT_EQ(peer.Received().back().path, path);
    EXPECT_THAT(RecordingLog::Texts(6), testing::ElementsAre(HasSubstr("'" + path + "' 'E' 'd'")));
}

TEST_F(DBus, RefusesNamesThatTheBusDoesNotAllowAndKeepsTheOldOne) {
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    bus.Run();
    for (const std::string& name :
         {std::string("with blank"), std::string("1starts.9digit"), std::string("\xFF"),
          std::string("nul\0inside", 10), std::string("a/b"), std::string(240, 'x')}) {
        TOpenDBus fresh;
        for (TOpenDBus* object : {&fresh, &bus}) {
            EXPECT_EQ(RuntimeErrorOf([&] { object->Init(name); }), "DBusMessage pointer is NULL!")
                << name;
        }
        EXPECT_EQ(fresh.Name(), "");
        EXPECT_EQ(bus.Name(), "OSTEL_KTA");
        EXPECT_TRUE(bus.IsRunning());
    }
    EXPECT_TRUE(HasOwner("com.Kaven.Ostel.OSTEL_KTA"));
}

TEST_F(DBus, OwnsANameOf255Characters) {
    const std::string id(255 - 16, 'x');
    TOpenDBus bus;
    bus.Init(id);
    EXPECT_TRUE(HasOwner("com.Kaven.Ostel." + id));
    // Its client name would be too long, and was never owned.
    bus.Init("OSTEL_KTA");
    EXPECT_TRUE(HasOwner("com.Kaven.Ostel.OSTEL_KTA"));
}

TEST_F(DBus, InitCanBeTriedAgainAfterTheBusWasAway) {
    m_Bus.Kill();
    TOpenDBus bus;
    EXPECT_THROW(bus.Init("OSTEL_KTA"), std::runtime_error);
    EXPECT_THAT(RecordingLog::Texts(2).at(0), testing::StartsWith("dbus_bus_get_private - "));
    m_Bus.Start();
    bus.Init("OSTEL_KTA");
    EXPECT_TRUE(HasOwner("com.Kaven.Ostel.OSTEL_KTA"));
}

TEST_F(DBus, ANameThatCannotBeGivenUpIsAnErrorAndTheObjectGoesOn) {
    TOpenDBus bus;
    bus.Init("A");
    bus.Run();
    m_Bus.Kill();
    EXPECT_THROW(bus.Init("B"), std::runtime_error);
    EXPECT_THAT(RecordingLog::Texts(2), Contains(StartsWith("dbus_bus_release_name - ")));
    EXPECT_THROW(bus.RegisterBusName(), std::runtime_error);
    EXPECT_THAT(RecordingLog::Texts(2), Contains(StartsWith("dbus_bus_request_name - ")));
    EXPECT_TRUE(bus.IsRunning());
    EXPECT_EQ(bus.Name(), "");
}

TEST_F(DBus, AnInstanceThatIsDestroyedGivesUpItsName) {
    std::unique_ptr<TOstelIpc> instance(newOstelIpcInstance());
    instance->Init("OSTEL_KTA");
    instance->Run();
    EXPECT_TRUE(HasOwner("com.Kaven.Ostel.OSTEL_KTA"));
    instance.reset();
    EXPECT_TRUE(WaitForName("com.Kaven.Ostel.OSTEL_KTA", false));
}

TEST_F(DBus, WorkersLookUpOnceASecondAndMonitorsTwice) {
    TOpenDBus bus;
    EXPECT_EQ(DispatchTimeoutMs(bus), 1000);
    bus.Init("WATCHER");
    EXPECT_EQ(DispatchTimeoutMs(bus), 1000);
    bus.BecomeMonitor();
    EXPECT_EQ(DispatchTimeoutMs(bus), 500);
}

TEST_F(DBus, RunsAgainAsItIsConfiguredWhenRenamed) {
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    bus.Run();
    bus.Configure({1, 60, true});
    bus.Init("WATCHER");
    EXPECT_TRUE(bus.IsRunning());
    EXPECT_EQ(DispatchTimeoutMs(bus), 500);
}

TEST_F(DBus, SaysWhatItDoesWhenAskedForDetails) {
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    bus.SetMethodServerId("*", "NOBODY");
    bus.SendEvent("E", "data");
    std::string reply;
    bus.CallMethod("M", "", reply);
    const std::string prefix = "\\[ipc-lib/d-bus/TOstelDBus:[0-9]+\\]";
    EXPECT_THAT(
        RecordingLog::Texts(6),
        testing::ElementsAre(
            MatchesRegex(prefix + "\\[Init\\]: OSTEL_KTA"),
            MatchesRegex(prefix + "\\[Init\\]: 'com.Kaven.Ostel.OSTEL_KTA' "
                                  "'com.Kaven.Ostel.Ostel' '/com/Kaven/Ostel/OSTEL_KTA'"),
            MatchesRegex(prefix + "\\[SendEvent\\]: '/com/Kaven/Ostel/OSTEL_KTA' 'E' 'data'"),
            MatchesRegex(prefix + "\\[CallMethod\\]: M")));
}

TEST_F(DBus, StopReturnsWithinADispatchTimeout) {
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    bus.Configure({3, 60, false});
    bus.Run();
    const auto start = std::chrono::steady_clock::now();
    bus.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1500));
    EXPECT_FALSE(bus.IsRunning());
    bus.Stop();
}

TEST_F(DBus, StopWakesASingleWorkerByACallToItself) {
    ChildProcess monitor({"dbus-monitor", "--system", "member='Disconnected'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    bus.Run();
    bus.Stop();
    // The second connection is the one that sends calls.
    EXPECT_TRUE(
        monitor.WaitForOutput("sender=:1.2 -> destination=com.Kaven.Ostel.OSTEL_KTA serial="))
        << monitor.Output();
    EXPECT_THAT(monitor.Output(),
                HasSubstr("path=/com/Kaven/Ostel/OSTEL_KTA; "
                          "interface=com.Kaven.Ostel.Ostel; member=Disconnected"));
}

TEST_F(DBus, StopFromInsideAHandlerDoesNotWaitForItself) {
    TOpenDBus bus;
    bus.Init("OSTEL_KTA");
    TCallHandler handler([&](const std::string&, std::string&) {
        bus.Stop();
        return 7;
    });
    bus.AddMethodHandler("STOP", &handler);
    bus.Run();
    RawPeer peer;
    EXPECT_EQ(CallAs(peer, "OSTEL_KTA", "STOP", "").second, 7);
    EXPECT_FALSE(bus.IsRunning());
}

TEST_F(DBus, RunsWithoutAConnectionUntilStopped) {
    TOpenDBus bus;
    bus.Run();
    bus.Stop();
    EXPECT_FALSE(bus.IsRunning());
}

TEST_F(DBus, TheProcessHasOneInstanceAndAsManyMoreAsItMakes) {
    EXPECT_EQ(getOstelIpcInstance(), getOstelIpcInstance());
    const std::unique_ptr<TOstelIpc> one(newOstelIpcInstance());
    const std::unique_ptr<TOstelIpc> other(newOstelIpcInstance());
    EXPECT_NE(one, other);
    EXPECT_NE(one.get(), getOstelIpcInstance());
    EXPECT_NE(dynamic_cast<TOstelDBus*>(one.get()), nullptr);
}

TEST(TOstelDBus, KeepsItsMembersInOrderBehindTheCores) {
    const std::size_t offsets[] = {OffsetOf(TServerConnection()), OffsetOf(TClientConnection()),
                                   OffsetOf(TBusName()),          OffsetOf(TInterfaceName()),
                                   OffsetOf(TObjectPath()),       OffsetOf(TConnected()),
                                   OffsetOf(TDispatchTimeout())};
    EXPECT_TRUE(std::is_sorted(std::begin(offsets), std::end(offsets)));
    EXPECT_GE(offsets[0], sizeof(TOstelIpc) - sizeof(void*));
    EXPECT_EQ(offsets[1] - offsets[0], sizeof(void*));
    EXPECT_EQ(offsets[2] - offsets[1], sizeof(void*));
    EXPECT_EQ(offsets[3] - offsets[2], sizeof(std::string));
    EXPECT_EQ(offsets[4] - offsets[3], sizeof(std::string));
    EXPECT_EQ(offsets[5] - offsets[4], sizeof(std::string));
    EXPECT_EQ(offsets[6] - offsets[5], 4U);
}

#ifdef __i386__
TEST(TOstelDBus, KeepsItsMembersWhereTheDeviceHasThem) {
    const std::size_t offsets[] = {OffsetOf(TServerConnection()), OffsetOf(TClientConnection()),
                                   OffsetOf(TBusName()),          OffsetOf(TInterfaceName()),
                                   OffsetOf(TObjectPath()),       OffsetOf(TConnected()),
                                   OffsetOf(TDispatchTimeout())};
    EXPECT_THAT(offsets, testing::ElementsAre(188, 192, 196, 220, 244, 268, 272));
    EXPECT_EQ(sizeof(TOstelIpc), 188U);
}
#endif

}  // namespace
