// The examples do what they say, against the real gateway.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "ChildProcess.h"
#include "GatewayProcess.h"
#include "PrivateBus.h"
#include "RawPeer.h"
#include "ScriptedDispatcher.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::string PROGRAMS = OSTEL_EXAMPLE_PROGRAMS;

class Examples : public testing::Test {
protected:
    PrivateBus m_Bus;
    GatewayProcess m_Gateway{OSTEL_GATEWAY};
};

TEST_F(Examples, ReadAndSet) {
    const TFinished run = RunProgram({PROGRAMS + "/read_and_set", "ntp.example.org"});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.output, StartsWith("Device.Time.Enable = true\n"));
    EXPECT_THAT(run.output, EndsWith("now Device.Time.NTPServer3 = ntp.example.org\n"));
    const TFinished refused = RunProgram({PROGRAMS + "/read_and_set", std::string(300, 'x')});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.errors, "Device.Time.NTPServer3: RC_INVALID_PARAM_VALUE\n");
}

TEST_F(Examples, WatchHosts) {
    ChildProcess watch({PROGRAMS + "/watch_hosts"});
    ASSERT_TRUE(watch.WaitForOutput("Device.Hosts.Host.10.HostName = tablet\n"));
    RawPeer peer;
    const char* const data =
        R"({"DATA_MODEL_NAME":"Device.Hosts.Host.2.Active","DATA_MODEL_VALUE":"false"})";
    DBusMessage* const change =
        dbus_message_new_signal("/a", "com.Kaven.Ostel.Ostel", "EVENT_TYPE_PARAM_CHANGED");
    dbus_message_append_args(change, DBUS_TYPE_STRING, &data, DBUS_TYPE_INVALID);
    peer.Send(change);
    EXPECT_TRUE(watch.WaitForOutput("changed: Device.Hosts.Host.2.Active false\n"));
    const char* const device = R"({"MAC_ADDRESS":"02:00:00:00:00:01","HOST_NAME":"phone"})";
    DBusMessage* const left =
        dbus_message_new_signal("/a", "com.Kaven.Ostel.Ostel", "EVENT_TYPE_CLIENT_DISCONNECTED");
    dbus_message_append_args(left, DBUS_TYPE_STRING, &device, DBUS_TYPE_INVALID);
    peer.Send(left);
    EXPECT_TRUE(watch.WaitForOutput("left: 02:00:00:00:00:01 phone\n"));
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Wait(), 0);
}

TEST_F(Examples, FlatClient) {
    const TFinished run = RunProgram({PROGRAMS + "/flat_client"});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.output, "Device.NAT.PortMapping. has 1 2 3\nDevice.NAT.PortMapping. has 1 2\n");
}

TEST(ExamplesAlone, TellThatThereIsNoBus) {
    for (const char* name : {"read_and_set", "watch_hosts", "flat_client"}) {
        const TFinished run = RunProgram({PROGRAMS + "/" + name});
        EXPECT_EQ(run.status, 1) << name;
        EXPECT_THAT(run.errors, HasSubstr("no bus")) << name;
    }
}

TEST(ExamplesAlone, TellOfACodeThatTheyDoNotKnow) {
    const PrivateBus bus;
    ScriptedDispatcher dispatcher;
    dispatcher.Answer("GET_PARAM", "{}", 1234);
    dispatcher.Answer("ADD_OBJECT_INSTANCE", "{}", 1234);
    for (const char* name : {"read_and_set", "flat_client"}) {
        const TFinished run = RunProgram({PROGRAMS + "/" + name});
        EXPECT_EQ(run.status, 1) << name;
        EXPECT_THAT(run.errors, HasSubstr(": code 1234\n")) << name;
    }
}

TEST(ExamplesAlone, AreShort) {
    for (const auto& entry : std::filesystem::directory_iterator(OSTEL_EXAMPLE_SOURCES)) {
        if (entry.path().extension() == ".txt") {
            continue;
        }
        std::ifstream source(entry.path());
        std::size_t lines = 0;
        for (std::string line; std::getline(source, line);) {
            ++lines;
        }
        EXPECT_GT(lines, 0U) << entry.path();
        EXPECT_LT(lines, 80U) << entry.path();
    }
}

}  // namespace
