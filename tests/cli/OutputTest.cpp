// What the tool prints must arrive, or it says that it did not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CliFixture.h"

namespace {

using testing::HasSubstr;

TFinished Shell(const std::string& command) {
    return RunProgram({"sh", "-c", command});
}

const std::string TOOL = OSTELCLI;

TEST_F(Ostelcli, TellsOfAFullDiskWhateverItPrints) {
    for (const char* arguments :
         {"get Device.", "--json get Device.", "get Device.Nothing Device.DeviceInfo.ModelName",
          "save Device.WiFi.", "tree Device.", "instances Device.Hosts.Host.", "index-map", "apps",
          "active OSTEL_DISPATCHER", "info", "--json commit",
          "long get Device.DeviceInfo.ModelName"}) {
        const TFinished full = Shell(TOOL + " " + arguments + " > /dev/full");
        EXPECT_EQ(full.status, 74) << arguments;
        EXPECT_THAT(full.errors, HasSubstr("ostelcli: standard output: No space left on device\n"))
            << arguments;
    }
}

TEST_F(Ostelcli, TellsWhenNobodyTakesItsOutput) {
    const TFinished closed = Shell(TOOL + " get Device.DeviceInfo.ModelName >&-");
    EXPECT_EQ(closed.status, 74);
    EXPECT_THAT(closed.errors, HasSubstr("ostelcli: standard output: Bad file descriptor\n"));
    EXPECT_EQ(Shell(TOOL + " set Device.Time.NTPServer3=x >&- 2>&- <&-").status, 0);
}

TEST_F(Ostelcli, WatchEndsWhenItsOutputIsLost) {
    ChildProcess watch({"sh", "-c", "exec " + TOOL + " watch > /dev/full"});
    ASSERT_TRUE(watch.WaitForErrors("watching"));
    EXPECT_EQ(Cli({"event", "E", "x"}).status, 0);
    EXPECT_EQ(watch.Wait(), 74);
    EXPECT_THAT(watch.Errors(), HasSubstr("No space left on device"));
}

TEST(OutputAlone, TellsThatTheHelpIsLost) {
    for (const char* arguments : {"--help", "get --help", "--version"}) {
        EXPECT_EQ(Shell(TOOL + " " + arguments + " > /dev/full").status, 74) << arguments;
    }
}

}  // namespace
