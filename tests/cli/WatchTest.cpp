// The watch from its beginning to its end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "CliFixture.h"
#include "RawPeer.h"

namespace {

using testing::HasSubstr;

const std::string LED = "Device.X_KAVEN_COM_General.LED.State";

void Broadcast(RawPeer& peer, const std::string& name, const std::string& data) {
    DBusMessage* const signal =
        dbus_message_new_signal("/a", "com.Kaven.Ostel.Ostel", name.c_str());
    const char* const text = data.c_str();
    dbus_message_append_args(signal, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    peer.Send(signal);
}

TEST_F(Ostelcli, WatchPrintsWhatHappens) {
    ChildProcess watch({OSTELCLI, "watch"});
    ASSERT_TRUE(watch.WaitForErrors("watching"));
    RawPeer peer;
    Broadcast(peer, "EVENT_TYPE_CLIENT_CONNECTED", R"({"MAC_ADDRESS":"02:00","HOST_NAME":"pc"})");
    Broadcast(peer, "EVENT_TYPE_PARAM_CHANGED",
              R"({"DATA_MODEL_NAME":"A","DATA_MODEL_VALUE":"1"})");
    Broadcast(peer, "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":"u"})");
    Broadcast(peer, "MY_EVENT", "the data");
    EXPECT_TRUE(watch.WaitForOutput("CLIENT  CLIENT_DEVICE_CONNECTED  02:00  pc\n"));
    EXPECT_TRUE(watch.WaitForOutput("PARAM  A  1\n"));
    EXPECT_TRUE(
        watch.WaitForOutput("EVENT  EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT  {\"URL\":\"u\"}\n"));
    EXPECT_TRUE(watch.WaitForOutput("EVENT  MY_EVENT  the data\n"));
    { const RawPeer application("OSTEL_MVA"); }
    EXPECT_TRUE(watch.WaitForOutput("APP  OSTEL_MVA  CONNECTED\n"));
    EXPECT_TRUE(watch.WaitForOutput("APP  OSTEL_MVA  DISCONNECTED\n"));
}

TEST_F(Ostelcli, WatchFollowsAPrefixUntilItsCount) {
    ChildProcess watch(
        {OSTELCLI, "--json", "watch", "Device.X_KAVEN_COM_General.", "--count", "1"});
    ASSERT_TRUE(watch.WaitForErrors("watching"));
    EXPECT_EQ(Cli({"event", "E", "not below the prefix"}).status, 0);
    EXPECT_EQ(Cli({"set", "Device.Time.NTPServer3=x"}).status, 0);
    EXPECT_EQ(Cli({"set", LED + "=OFF"}).status, 0);
    EXPECT_EQ(watch.Wait(), 0);
    EXPECT_EQ(watch.Output(), R"({"KIND":"PARAM","NAME":")" + LED + R"(","VALUE":"OFF"})" + "\n");
}

TEST_F(Ostelcli, WatchEndsOnItsSignals) {
    for (const int signal : {SIGINT, SIGTERM}) {
        ChildProcess watch({OSTELCLI, "watch"});
        ASSERT_TRUE(watch.WaitForErrors("watching"));
        watch.Signal(signal);
        EXPECT_EQ(watch.Wait(), 0);
    }
}

TEST_F(Ostelcli, WatchEndsWhenTheBusHasGone) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, std::vector<std::string>{"Device."}}) {
        std::vector<std::string> command = {OSTELCLI, "watch"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ChildProcess watch(command);
        ASSERT_TRUE(watch.WaitForErrors("watching"));
        m_Bus.Kill();
        EXPECT_EQ(watch.Wait(), 69);
        EXPECT_THAT(watch.Errors(), HasSubstr("ostelcli: the bus has gone\n"));
        m_Bus.Start();
    }
}

TEST_F(Ostelcli, WatchIsNotEndedByAnEventThatSoundsAsIfTheBusHadGone) {
    ChildProcess watch({OSTELCLI, "watch"});
    ASSERT_TRUE(watch.WaitForErrors("watching"));
    RawPeer peer;
    for (int i = 0; i < 3; ++i) {
        Broadcast(peer, "Disconnected", "");
    }
    Broadcast(peer, "MY_EVENT", "behind them");
    EXPECT_TRUE(watch.WaitForOutput("behind them"));
    watch.Signal(SIGTERM);
    EXPECT_EQ(watch.Wait(), 0);
}

}  // namespace
