#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "CliFixture.h"
#include "TempDir.h"

namespace {

using testing::HasSubstr;

const std::string LED = "Device.X_KAVEN_COM_General.LED.";
const std::string MAPPINGS = "Device.NAT.PortMapping.";
const std::string ADDRESSES = "Device.DHCPv4.Server.Pool.1.StaticAddress.";

class Snapshot : public Ostelcli {
protected:
    std::string Save(const std::string& path) {
        const TFinished save = Cli({"save", path});
        EXPECT_EQ(save.status, 0) << save.errors;
        return Write(save.output);
    }

    std::string Write(const std::string& text) {
        std::string file = m_Dir.File("snapshot" + std::to_string(++m_Count) + ".json");
        std::ofstream(file) << text;
        return file;
    }

    static std::string Value(const std::string& name) {
        const std::string line = Cli({"get", name}).output;
        const std::size_t blanks = line.find("  ");
        return blanks == std::string::npos ? "not there"
                                           : line.substr(blanks + 2, line.size() - blanks - 3);
    }

    // Two values that can be written, and one that cannot: neither now nor with the next commit is
    // anything changed.
    void ExpectToBeTakenBack(const std::string& first, const std::string& firstValue,
                             const std::string& second, const std::string& secondValue) {
        const std::string file = Write(R"({"ROOT":"Device.","PARAMS":[
            {"NAME":")" + first + R"(","VALUE":")" +
                                       firstValue + R"("},
            {"NAME":")" + second + R"(","VALUE":")" +
                                       secondValue + R"("},
            {"NAME":")" + LED + R"(Brightness","VALUE":"very"}]})");
        const std::string before = Cli({"get", "Device."}).output;
        EXPECT_EQ(Cli({"load", file}).status, 5);
        EXPECT_EQ(Cli({"commit"}).status, 0);
        EXPECT_EQ(Cli({"get", "Device."}).output, before);
    }

    TempDir m_Dir;
    int m_Count = 0;
};

TEST_F(Snapshot, SaveWritesRootAndParameters) {
    EXPECT_EQ(Cli({"save", "Device.DeviceInfo.MemoryStatus."}).output,
              "{\n  \"ROOT\": \"Device.DeviceInfo.MemoryStatus.\",\n  \"PARAMS\": [\n    {\n"
              "      \"NAME\": \"Device.DeviceInfo.MemoryStatus.Total\",\n"
              "      \"VALUE\": \"524288\"\n    },\n    {\n"
              "      \"NAME\": \"Device.DeviceInfo.MemoryStatus.Free\",\n"
              "      \"VALUE\": \"262144\"\n    }\n  ]\n}\n");
    EXPECT_EQ(Cli({"--json", "save", LED + "State"}).output,
              R"({"ROOT":")" + LED + R"(State","PARAMS":[{"NAME":")" + LED +
                  R"(State","VALUE":"ON"}]})"
                  "\n");
    EXPECT_EQ(Cli({"save", "Device.Nothing."}).status, 4);
}

TEST_F(Snapshot, LoadRestoresWhatDiffers) {
    const std::string file = Save("Device.");
    EXPECT_EQ(Cli({"set", LED + "State=BLINK", LED + "Brightness=3"}).status, 0);
    EXPECT_EQ(Cli({"diff", file}).status, 1);
    const TFinished load = Cli({"load", file});
    EXPECT_EQ(load.status, 0);
    EXPECT_EQ(load.output, "2 values written, 0 instances added, 0 deleted\n");
    EXPECT_EQ(load.errors, "");
    EXPECT_EQ(Value(LED + "State"), "ON");
    EXPECT_EQ(Cli({"diff", file}).status, 0);
}

TEST_F(Snapshot, LoadLeavesItStagedWhenToldSo) {
    const std::string file = Save(LED);
    EXPECT_EQ(Cli({"set", LED + "State=BLINK"}).status, 0);
    EXPECT_EQ(Cli({"load", file, "--no-commit"}).status, 0);
    EXPECT_EQ(Value(LED + "State"), "BLINK");
    EXPECT_EQ(Cli({"commit"}).status, 0);
    EXPECT_EQ(Value(LED + "State"), "ON");
}

TEST_F(Snapshot, LoadLeavesReadOnlyParametersAlone) {
    const std::string file = Write(R"({"ROOT":"Device.","PARAMS":[
        {"NAME":"Device.DeviceInfo.SerialNumber","VALUE":"other"},
        {"NAME":"Device.Gone.Parameter","VALUE":"x"},
        {"NAME":")" + LED + R"(State","VALUE":"PULSE"}]})");
    const TFinished load = Cli({"load", file});
    EXPECT_EQ(load.status, 0);
    EXPECT_EQ(load.errors,
              "ostelcli: Device.DeviceInfo.SerialNumber differs and is read-only; left as it is\n"
              "ostelcli: Device.Gone.Parameter is not on the device; left out\n");
    EXPECT_EQ(Value(LED + "State"), "PULSE");
    EXPECT_THAT(Cli({"--json", "load", file}).output,
                HasSubstr(R"({"WRITTEN":0,"ADDED":0,"DELETED":0,"READ_ONLY":1,"MISSING":1})"));
}

TEST_F(Snapshot, LoadTakesEverythingBackWhenAValueIsRefused) {
    const std::string file = Write(R"({"ROOT":"Device.","PARAMS":[
        {"NAME":")" + LED + R"(State","VALUE":"PULSE"},
        {"NAME":")" + MAPPINGS + R"(77.Description","VALUE":"new"},
        {"NAME":")" + LED + R"(Brightness","VALUE":"very"}]})");
    const std::string before = Cli({"get", "Device."}).output;
    const TFinished load = Cli({"load", file});
    EXPECT_EQ(load.status, 5);
    EXPECT_EQ(load.errors, "ostelcli: " + LED + "Brightness: RC_INVALID_PARAM_VALUE (5)\n");
    EXPECT_EQ(Cli({"commit"}).status, 0);
    EXPECT_EQ(Cli({"get", "Device."}).output, before);
}

// Aliases are unique: neither of the two can have its own again before the other.
TEST_F(Snapshot, LoadRestoresUniqueKeysThatWereExchanged) {
    const std::string first = "Device.IP.Interface.1.Alias";
    const std::string second = "Device.IP.Interface.2.Alias";
    const std::string ofFirst = Value(first);
    const std::string ofSecond = Value(second);
    ASSERT_NE(ofFirst, ofSecond);
    const std::string file = Save("Device.IP.");
    EXPECT_EQ(Cli({"set", first + "=" + ofSecond, second + "=" + ofFirst}).status, 0);
    const TFinished load = Cli({"load", file});
    EXPECT_EQ(load.status, 0) << load.errors;
    EXPECT_EQ(load.output, "2 values written, 0 instances added, 0 deleted\n");
    EXPECT_EQ(Cli({"diff", file}).output, "");
}

TEST_F(Snapshot, LoadTakesUniqueKeysBackThatHadMovedOn) {
    const std::string first = "Device.IP.Interface.1.Alias";
    ExpectToBeTakenBack(first, "free", "Device.IP.Interface.2.Alias", Value(first));
}

TEST_F(Snapshot, LoadTakesAUniqueKeyBackFromAnInstanceItAdded) {
    const std::string first = ADDRESSES + "1.Chaddr";
    ExpectToBeTakenBack(first, "02:00:00:00:00:77", ADDRESSES + "77.Chaddr", Value(first));
}

TEST_F(Snapshot, LoadLeavesNoInstanceBehindWhenNothingOfItIsKnown) {
    const std::string file = Write(R"({"ROOT":"Device.NAT.","PARAMS":[
        {"NAME":")" + MAPPINGS + R"(77.Colour","VALUE":"red"}]})");
    const std::string before = Cli({"instances", MAPPINGS}).output;
    EXPECT_EQ(Cli({"load", file}).status, 4);
    EXPECT_EQ(Cli({"commit"}).status, 0);
    EXPECT_EQ(Cli({"instances", MAPPINGS}).output, before);
}

// The paths of all its instances would be gigabytes.
TEST_F(Snapshot, LoadBearsANameOfEndlessInstances) {
    if (OSTEL_SANITIZED) {
        GTEST_SKIP() << "a sanitizer does not run in so little memory";
    }
    std::string name = "Device.";
    for (int i = 0; i < 200000; ++i) {
        name += "1.";
    }
    const std::string file =
        Write(R"({"ROOT":"Device.NAT.","PARAMS":[{"NAME":")" + name + R"(","VALUE":""}]})");
    const TFinished load = RunProgram(
        {"sh", "-c", "ulimit -v 1000000; exec " + std::string(OSTELCLI) + " load " + file});
    EXPECT_EQ(load.status, 4) << load.errors;
}

TEST_F(Snapshot, LoadAddsMissingInstancesUnderNewNumbers) {
    EXPECT_EQ(Cli({"add", MAPPINGS}).status, 0);
    const std::string ids = Cli({"instances", MAPPINGS}).output;
    const std::string last = ids.substr(ids.rfind('\n', ids.size() - 2) + 1);
    const std::string instance = MAPPINGS + last.substr(0, last.size() - 1) + ".";
    EXPECT_EQ(Cli({"set", instance + "Description=game"}).status, 0);
    const std::string file = Save(MAPPINGS);
    EXPECT_EQ(Cli({"delete", instance}).status, 0);
    const TFinished load = Cli({"load", file});
    EXPECT_EQ(load.status, 0);
    EXPECT_THAT(load.output, HasSubstr("1 instances added"));
    EXPECT_EQ(Value(instance + "Description"), "not there");
    const std::string added = MAPPINGS + std::to_string(std::stoi(last) + 1) + ".";
    EXPECT_EQ(Value(added + "Description"), "game");
}

TEST_F(Snapshot, LoadRestoresADeletedInstanceByItself) {
    const std::string instance = MAPPINGS + "1.";
    const std::string description = Value(instance + "Description");
    const std::string file = Save(instance);
    EXPECT_EQ(Cli({"delete", instance}).status, 0);
    EXPECT_EQ(Cli({"load", file}).status, 0);
    EXPECT_THAT(Cli({"get", MAPPINGS + "*.Description"}).output, HasSubstr(description));
}

TEST_F(Snapshot, LoadDeletesOtherInstancesOnlyWhenToBeExact) {
    const std::string file = Save(MAPPINGS);
    const std::string before = Cli({"instances", MAPPINGS}).output;
    EXPECT_EQ(Cli({"add", MAPPINGS}).status, 0);
    EXPECT_THAT(Cli({"load", file}).output, HasSubstr(" 0 deleted"));
    EXPECT_NE(Cli({"instances", MAPPINGS}).output, before);
    EXPECT_THAT(Cli({"load", file, "--exact"}).output, HasSubstr(" 1 deleted"));
    EXPECT_EQ(Cli({"instances", MAPPINGS}).output, before);
    EXPECT_EQ(Cli({"diff", file}).status, 0);
}

TEST_F(Snapshot, ExactLoadRestoresAUniqueKeyThatAnotherInstanceHasTaken) {
    const std::string key = Value(ADDRESSES + "1.Chaddr");
    const std::string file = Save(ADDRESSES);
    EXPECT_EQ(Cli({"delete", ADDRESSES + "1."}).status, 0);
    EXPECT_EQ(Cli({"add", ADDRESSES}).status, 0);
    EXPECT_EQ(Cli({"set", ADDRESSES + "2.Chaddr=" + key}).status, 0);
    EXPECT_EQ(Cli({"load", file}).status, 5);
    const TFinished load = Cli({"load", file, "--exact"});
    EXPECT_EQ(load.status, 0);
    EXPECT_EQ(load.errors, "");
    EXPECT_THAT(load.output, HasSubstr("1 instances added, 1 deleted"));
    EXPECT_EQ(Cli({"instances", ADDRESSES}).output, "4\n");
    EXPECT_EQ(Value(ADDRESSES + "4.Chaddr"), key);
}

TEST_F(Snapshot, ExactLoadMakesRoomInAFullTable) {
    const std::string interfaces = "Device.IP.Interface.";
    const std::string alias = Value(interfaces + "3.Alias");
    ASSERT_NE(alias, "");
    const std::string file = Save(interfaces);
    EXPECT_EQ(Cli({"delete", interfaces + "3."}).status, 0);
    while (Cli({"add", interfaces}).status == 0) {
    }
    const TFinished load = Cli({"load", file, "--exact"});
    EXPECT_EQ(load.status, 0);
    EXPECT_EQ(load.errors, "");
    EXPECT_THAT(Cli({"get", interfaces + "*.Alias"}).output, HasSubstr("  " + alias + "\n"));
    EXPECT_THAT(Cli({"get", "Device.IP.InterfaceNumberOfEntries"}).output, HasSubstr("  3\n"));
}

TEST_F(Snapshot, ExactLoadThatFailsTellsOfDeletionsThatItHadToStage) {
    EXPECT_EQ(Cli({"add", MAPPINGS}).status, 0);
    const std::string file = Write(R"({"ROOT":")" + MAPPINGS + R"(","PARAMS":[
        {"NAME":")" + MAPPINGS + R"(1.Protocol","VALUE":"none"},
        {"NAME":")" + MAPPINGS + R"(2.Description","VALUE":"x"}]})");
    const TFinished load = Cli({"load", file, "--exact"});
    EXPECT_EQ(load.status, 5);
    EXPECT_EQ(load.errors, "ostelcli: " + MAPPINGS +
                               "1.Protocol: RC_INVALID_PARAM_VALUE (5)\n"
                               "ostelcli: the deletion of 1 instances cannot be taken back; "
                               "it is staged for the next commit\n");
}

TEST_F(Snapshot, DiffShowsBothSides) {
    const std::string file = Save("Device.X_KAVEN_COM_General.");
    const TFinished none = Cli({"diff", file});
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.output, "");
    EXPECT_EQ(Cli({"set", LED + "State=BLINK"}).status, 0);
    const TFinished diff = Cli({"diff", file});
    EXPECT_EQ(diff.status, 1);
    EXPECT_EQ(diff.output, "- " + LED + "State  ON\n+ " + LED + "State  BLINK\n");
    EXPECT_EQ(Cli({"diff", file, "--json"}).output, R"({"DIFFERENCES":[{"NAME":")" + LED +
                                                        R"(State","FILE":"ON","DEVICE":"BLINK"}]})"
                                                        "\n");
    EXPECT_EQ(Cli({"diff", file, "Device.X_KAVEN_COM_General.Storage."}).status, 0);
    EXPECT_EQ(Cli({"diff", file, LED}).status, 1);
}

TEST_F(Snapshot, DiffShowsWhatIsOnOneSideOnly) {
    const std::string file = Write(R"({"ROOT":"Device.DeviceInfo.MemoryStatus.","PARAMS":[
        {"NAME":"Device.DeviceInfo.MemoryStatus.Total","VALUE":"524288"},
        {"NAME":"Device.DeviceInfo.MemoryStatus.Used","VALUE":"1"}]})");
    EXPECT_EQ(Cli({"diff", file}).output,
              "- Device.DeviceInfo.MemoryStatus.Used  1\n"
              "+ Device.DeviceInfo.MemoryStatus.Free  262144\n");
}

TEST_F(Snapshot, SaysThatAFileIsNone) {
    const struct {
        std::string file;
        int status;
        const char* error;
    } cases[] = {
        {m_Dir.File("missing"), 66, "No such file or directory"},
        {Write(""), 65, "the file is empty"},
        {Write("{"), 65, "snapshot2.json: "},
        {Write("{}"), 65, "not a snapshot"},
        {Write(R"({"ROOT":"Device."})"), 65, "not a snapshot"},
        {Write(R"({"ROOT":"Device.","PARAMS":[5]})"), 65, "not a snapshot"},
        {Write(R"({"ROOT":"Device.","PARAMS":[{"NAME":"x"}]})"), 65, "not a snapshot"},
        {Write(std::string(100000, '[')), 65, "snapshot"},
    };
    for (const auto& one : cases) {
        for (const char* verb : {"load", "diff"}) {
            const TFinished result = Cli({verb, one.file});
            EXPECT_EQ(result.status, one.status) << verb << " " << one.file;
            EXPECT_THAT(result.errors, HasSubstr(one.error)) << verb;
        }
    }
    const std::string unknown =
        Write(R"({"ROOT":"Device.X.","PARAMS":[{"NAME":"Device.X.Y","VALUE":"1"}]})");
    EXPECT_EQ(Cli({"load", unknown}).status, 4);
}

}  // namespace
