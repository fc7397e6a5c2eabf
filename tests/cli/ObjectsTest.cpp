#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CliFixture.h"

namespace {

using testing::HasSubstr;

const std::string LED = "Device.X_KAVEN_COM_General.LED.";
const std::string MAPPINGS = "Device.NAT.PortMapping.";

TEST_F(Ostelcli, ObjectGetReadsAllOrSomeOfAnObject) {
    EXPECT_EQ(Cli({"object", "get", "Device.DeviceInfo.MemoryStatus."}).output,
              "Device.DeviceInfo.MemoryStatus.Total  524288\n"
              "Device.DeviceInfo.MemoryStatus.Free   262144\n");
    EXPECT_EQ(Cli({"object", "get", LED, "State"}).output, LED + "State  ON\n");
    EXPECT_EQ(Cli({"--json", "object", "get", LED, "State"}).output, R"({"PARAMS":[{"NAME":")" +
                                                                         LED +
                                                                         R"(State","VALUE":"ON"}]})"
                                                                         "\n");
    const TFinished wrong = Cli({"object", "get", LED, "Colour"});
    EXPECT_EQ(wrong.status, 4);
    EXPECT_EQ(wrong.errors, "ostelcli: " + LED + ": RC_INVALID_PARAM_NAME (4)\n");
}

TEST_F(Ostelcli, ObjectSetWritesAllOrNothing) {
    EXPECT_EQ(Cli({"object", "set", LED, "State=BLINK", "Brightness=x"}).status, 5);
    EXPECT_EQ(Cli({"commit"}).status, 0);
    EXPECT_THAT(Cli({"get", LED + "State"}).output, HasSubstr("ON"));
    EXPECT_EQ(Cli({"object", "set", LED, "State=BLINK", "Brightness=7", "--no-commit"}).status, 0);
    EXPECT_THAT(Cli({"get", LED + "State"}).output, HasSubstr("ON"));
    EXPECT_EQ(Cli({"object", "set", LED, "State=PULSE"}).status, 0);
    EXPECT_THAT(Cli({"get", LED + "State"}).output, HasSubstr("PULSE"));
    EXPECT_THAT(Cli({"get", LED + "Brightness"}).output, HasSubstr("7"));
    EXPECT_EQ(Cli({"object", "set", LED, "State"}).status, 64);
    EXPECT_EQ(Cli({"object"}).status, 64);
}

TEST_F(Ostelcli, InstancesListsNumbers) {
    EXPECT_EQ(Cli({"instances", "Device.Hosts.Host."}).output, "1\n2\n3\n10\n");
    EXPECT_EQ(Cli({"instances", "Device.Hosts.Host.", "--json"}).output, "{\"IDS\":[1,2,3,10]}\n");
    EXPECT_EQ(Cli({"instances", "Device.DeviceInfo."}).status, 4);
}

TEST_F(Ostelcli, TreeShowsWhatStandsBelow) {
    EXPECT_EQ(Cli({"tree", "Device.DeviceInfo.Processor."}).output,
              "Device.DeviceInfo.Processor.\n"
              "  1.\n"
              "    Architecture\n");
    EXPECT_EQ(Cli({"tree", "Device.DeviceInfo.Processor.", "--json"}).output,
              R"({"PARAMS":["Device.DeviceInfo.Processor.","Device.DeviceInfo.Processor.1.",)"
              R"("Device.DeviceInfo.Processor.1.Architecture"]})"
              "\n");
    EXPECT_EQ(Cli({"tree", "Device"}).status, 4);
}

TEST_F(Ostelcli, AddPrintsTheInstanceAndDeleteRemovesIt) {
    const std::string before = Cli({"instances", MAPPINGS}).output;
    const TFinished add = Cli({"add", MAPPINGS});
    EXPECT_EQ(add.status, 0);
    EXPECT_THAT(add.output, testing::MatchesRegex("Device.NAT.PortMapping.[0-9]+.\n"));
    const std::string instance = add.output.substr(0, add.output.size() - 1);
    EXPECT_NE(Cli({"instances", MAPPINGS}).output, before);
    EXPECT_EQ(Cli({"delete", instance, "--no-commit"}).status, 0);
    EXPECT_NE(Cli({"instances", MAPPINGS}).output, before);
    EXPECT_EQ(Cli({"commit"}).status, 0);
    EXPECT_EQ(Cli({"instances", MAPPINGS}).output, before);
    EXPECT_THAT(Cli({"--json", "add", MAPPINGS, "--no-commit"}).output,
                testing::MatchesRegex("\\{\"ID\":[0-9]+\\}\n"));
    EXPECT_EQ(Cli({"instances", MAPPINGS}).output, before);
}

TEST_F(Ostelcli, AddAndDeleteTellWhatWasRefused) {
    EXPECT_EQ(Cli({"add", "Device.DeviceInfo.Processor."}).status, 7);
    EXPECT_EQ(Cli({"add", "Device.NAT."}).status, 4);
    EXPECT_EQ(Cli({"delete", MAPPINGS + "999."}).status, 4);
    const TFinished second = Cli({"delete", MAPPINGS + "1.", MAPPINGS + "999."});
    EXPECT_EQ(second.status, 4);
    EXPECT_EQ(second.errors, "ostelcli: 1 earlier deletions are staged, not committed\nostelcli: " +
                                 MAPPINGS + "999.: RC_INVALID_PARAM_NAME (4)\n");
}

TEST_F(Ostelcli, IndexMapShowsBothNumbers) {
    EXPECT_EQ(Cli({"index-map"}).output,
              "Device.IP.Interface.1.  3\n"
              "Device.IP.Interface.2.  1\n"
              "Device.IP.Interface.3.  2\n"
              "Device.WiFi.SSID.1.     2\n"
              "Device.WiFi.SSID.2.     1\n"
              "Device.WiFi.SSID.3.     3\n");
    EXPECT_THAT(Cli({"index-map", "--json"}).output,
                HasSubstr(R"({"NAME":"Device.IP.Interface.","INDEX_MAP":[{"APP_INDEX":1,)"
                          R"("PLATFORM_INDEX":3})"));
}

}  // namespace
