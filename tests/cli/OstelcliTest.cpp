// The tool as a person and as a program use it: the real programs on a private bus.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "CliFixture.h"
#include "RawPeer.h"
#include "WaitUntil.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string LED = "Device.X_KAVEN_COM_General.LED.State";

TEST_F(Ostelcli, GetPrintsNameAndValue) {
    const TFinished get = Cli({"get", "Device.DeviceInfo.SerialNumber"});
    EXPECT_EQ(get.status, 0);
    EXPECT_EQ(get.output, "Device.DeviceInfo.SerialNumber  KV0123456789\n");
    EXPECT_EQ(get.errors, "");
}

TEST_F(Ostelcli, GetAlignsSeveral) {
    EXPECT_EQ(Cli({"get", "Device.Hosts.Host.*.HostName", "Device.DeviceInfo.ModelName"}).output,
              "Device.Hosts.Host.1.HostName   desktop\n"
              "Device.Hosts.Host.2.HostName   laptop\n"
              "Device.Hosts.Host.3.HostName   printer\n"
              "Device.Hosts.Host.10.HostName  tablet\n"
              "Device.DeviceInfo.ModelName    HG-400\n");
}

TEST_F(Ostelcli, GetPrintsJsonForPrograms) {
    const std::string expected =
        R"({"PARAMS":[{"NAME":"Device.DeviceInfo.ModelName","VALUE":"HG-400"}]})"
        "\n";
    EXPECT_EQ(Cli({"--json", "get", "Device.DeviceInfo.ModelName"}).output, expected);
    EXPECT_EQ(Cli({"get", "Device.DeviceInfo.ModelName", "--json"}).output, expected);
}

TEST_F(Ostelcli, GetTellsOfUnknownNamesAndPrintsTheRest) {
    const TFinished get = Cli({"get", "Device.Nothing", "Device.DeviceInfo.ModelName"});
    EXPECT_EQ(get.status, 4);
    EXPECT_EQ(get.errors, "ostelcli: Device.Nothing: RC_INVALID_PARAM_NAME (4)\n");
    EXPECT_THAT(get.output, HasSubstr("HG-400"));
}

TEST_F(Ostelcli, GetTellsWhoLeftOutThePointOfAnObject) {
    const TFinished get = Cli({"get", "Device.DeviceInfo"});
    EXPECT_EQ(get.status, 4);
    EXPECT_EQ(get.output, "");
    EXPECT_EQ(get.errors,
              "ostelcli: Device.DeviceInfo: RC_INVALID_PARAM_NAME (4)\n"
              "ostelcli: 'Device.DeviceInfo.' is there: the path of an object ends in a point\n");
}

TEST_F(Ostelcli, SetCommitsUnlessToldNotTo) {
    EXPECT_EQ(Cli({"set", LED + "=BLINK", "--no-commit"}).status, 0);
    EXPECT_THAT(Cli({"get", LED}).output, HasSubstr("  ON\n"));
    EXPECT_EQ(Cli({"commit"}).status, 0);
    EXPECT_THAT(Cli({"get", LED}).output, HasSubstr("  BLINK\n"));
    EXPECT_EQ(Cli({"set", LED + "=OFF", "Device.Time.NTPServer3=a=b"}).status, 0);
    EXPECT_THAT(Cli({"get", LED}).output, HasSubstr("  OFF\n"));
    EXPECT_THAT(Cli({"get", "Device.Time.NTPServer3"}).output, HasSubstr("  a=b\n"));
}

TEST_F(Ostelcli, TellsProgramsThatItWasDone) {
    const std::vector<std::vector<std::string>> commands = {
        {"set", LED + "=BLINK"}, {"commit"}, {"event", "E", "data"}};
    for (std::vector<std::string> command : commands) {
        EXPECT_EQ(Cli(command).output, "") << command[0];
        command.emplace_back("--json");
        EXPECT_EQ(Cli(command).output, "{\"RESULT\":\"RC_SUCCESS\"}\n") << command[0];
    }
}

TEST_F(Ostelcli, SetTellsWhatWasRefused) {
    const TFinished set = Cli({"set", "Device.Time.NTPServer3=x", LED + "=PURPLE"});
    EXPECT_EQ(set.status, 5);
    EXPECT_EQ(set.errors, "ostelcli: Device.Time.NTPServer3, " + LED +
                              ": none is written: RC_INVALID_PARAM_VALUE (5)\n");
    EXPECT_EQ(Cli({"set", LED + "=PURPLE"}).errors,
              "ostelcli: " + LED + ": RC_INVALID_PARAM_VALUE (5)\n");
    // Nothing waits for the next commit, whoever it is that commits.
    EXPECT_EQ(Cli({"commit"}).status, 0);
    EXPECT_EQ(Cli({"get", "Device.Time.NTPServer3"}).output, "Device.Time.NTPServer3  \n");
    EXPECT_EQ(Cli({"set", "Device.DeviceInfo.SerialNumber=x"}).status, 7);
    EXPECT_EQ(Cli({"set", "Device.Nothing=x"}).status, 4);
    for (const char* assignment : {"no-equals-sign", "=value"}) {
        EXPECT_EQ(Cli({"set", assignment}).status, 64) << assignment;
    }
    EXPECT_EQ(Cli({"set", "=x"}).errors, "ostelcli: =x is not NAME=VALUE\n");
    EXPECT_THAT(Cli({"set", "Device.Time.NTPServer3"}).errors, HasSubstr("is not NAME=VALUE"));
}

TEST_F(Ostelcli, BearsTextsThatNobodyExpects) {
    EXPECT_EQ(Cli({"get", "\xFF"}).status, 1);
    EXPECT_EQ(Cli({"get", ""}).status, 4);
    EXPECT_EQ(Cli({"get", std::string(256, 'x')}).status, 4);
    EXPECT_EQ(Cli({"set", LED + "=\xFF"}).status, 1);
    EXPECT_EQ(Cli({"set", LED + "=" + std::string(100000, 'x')}).status, 5);
    EXPECT_EQ(Cli({"event", "bad name", "x"}).status, 3);
    EXPECT_EQ(Cli({"event", "E", "\xFF"}).status, 3);
    EXPECT_EQ(Cli({"event", std::string(256, 'x'), "x"}).status, 3);
}

TEST_F(Ostelcli, MakesControlCharactersVisible) {
    EXPECT_EQ(Cli({"set", "Device.Time.NTPServer3=a\x1b[31m\nb"}).status, 0);
    EXPECT_EQ(Cli({"get", "Device.Time.NTPServer3"}).output,
              "Device.Time.NTPServer3  a\\x1b[31m\\x0ab\n");
    EXPECT_EQ(Cli({"get", "\xC2\x9B"}).errors, "ostelcli: \\xc2\\x9b: RC_INVALID_PARAM_NAME (4)\n");
}

TEST_F(Ostelcli, EventIsSeenByAnotherProgram) {
    ChildProcess monitor({"dbus-monitor", "--system", "member='MY_EVENT'"});
    ASSERT_TRUE(monitor.WaitForOutput("NameLost"));
    EXPECT_EQ(Cli({"event", "MY_EVENT", R"({"a":1})"}).status, 0);
    ASSERT_TRUE(monitor.WaitForOutput(R"(string "{"a":1}")")) << monitor.Output();
    EXPECT_THAT(monitor.Output(), HasSubstr("path=/com/Kaven/Ostel/OSTEL_CLI; "
                                            "interface=com.Kaven.Ostel.Ostel; member=MY_EVENT"));
}

TEST_F(Ostelcli, AppsListsWhoIsActive) {
    RawPeer application("OSTEL_MVA");
    application.Answer("IS_APP_ACTIVE", "", 0);
    RawPeer failing("OSTEL_FENA");
    failing.Answer("IS_APP_ACTIVE", "", -1);
    EXPECT_EQ(Cli({"apps"}).output, "OSTEL_MVA\nOSTEL_DISPATCHER\nOSTEL_CLI\n");
    EXPECT_EQ(Cli({"apps", "--json"}).output,
              "{\"APPS\":[\"OSTEL_MVA\",\"OSTEL_DISPATCHER\",\"OSTEL_CLI\"]}\n");
}

TEST_F(Ostelcli, ActiveTellsWhetherAnApplicationIs) {
    const TFinished there = Cli({"active", "OSTEL_DISPATCHER"});
    EXPECT_EQ(there.status, 0);
    EXPECT_EQ(there.output, "OSTEL_DISPATCHER  active\n");
    EXPECT_EQ(Cli({"--json", "active", "OSTEL_DISPATCHER"}).output,
              "{\"NAME\":\"OSTEL_DISPATCHER\",\"ACTIVE\":true}\n");
    const TFinished gone = Cli({"active", "OSTEL_MVA"});
    EXPECT_EQ(gone.status, 1);
    EXPECT_EQ(gone.output, "OSTEL_MVA  not active\n");
    EXPECT_EQ(gone.errors, "");
    RawPeer failing("OSTEL_FENA");
    failing.Answer("IS_APP_ACTIVE", "", -1);
    EXPECT_EQ(Cli({"active", "OSTEL_FENA", "--json"}).output,
              "{\"NAME\":\"OSTEL_FENA\",\"ACTIVE\":false}\n");
    EXPECT_EQ(Cli({"active", ""}).status, 255);
    for (const std::string& name : {std::string("not a name"), std::string(100000, 'x')}) {
        const TFinished wrong = Cli({"active", name});
        EXPECT_EQ(wrong.status, 3);
        EXPECT_THAT(wrong.errors, HasSubstr("RC_RUNTIME_ERROR (3)"));
    }
}

TEST_F(Ostelcli, InfoShowsLibraryBusAndDevice) {
    const TFinished info = Cli({"info"});
    EXPECT_EQ(info.status, 0);
    for (const char* part : {"1.7.9", "unix:path=", "active", "HG-400", "KV0123456789"}) {
        EXPECT_THAT(info.output, HasSubstr(part));
    }
    EXPECT_THAT(Cli({"info", "--json"}).output, StartsWith(R"({"Library":"1.7.9","Bus":")"));
}

TEST_F(Ostelcli, ACrashOfTheGatewayIsAFailureNotAHang) {
    m_Gateway.Process().Signal(SIGKILL);
    m_Gateway.Process().Wait();
    const TFinished get = Cli({"get", "Device."});
    EXPECT_EQ(get.status, 255);
    EXPECT_EQ(get.errors,
              "ostelcli: Device.: RC_FAILURE (-1)\n"
              "ostelcli: no gateway answers on this bus (see 'ostelcli info')\n");
    EXPECT_THAT(Cli({"info"}).output, HasSubstr("not there"));
}

TEST_F(Ostelcli, EndsQuietlyWhenItsReaderHasSeenEnough) {
    const TFinished head =
        RunProgram({"sh", "-c", std::string(OSTELCLI) + " get Device. | head -n 1"});
    EXPECT_EQ(head.status, 0);
    EXPECT_EQ(head.errors, "");
}

TEST(OstelcliAlone, WithoutABusSaysSo) {
    const TFinished get = Cli({"get", "Device."});
    EXPECT_EQ(get.status, 69);
    EXPECT_EQ(get.errors,
              "ostelcli: cannot connect to the bus at DBUS_SYSTEM_BUS_ADDRESS, "
              "'unix:path=/nonexistent'\n");
    EXPECT_EQ(get.output, "");
}

TEST(OstelcliAlone, TellsItsVersion) {
    EXPECT_EQ(Cli({"--version"}).output, "1.7.9\n");
}

TEST(OstelcliAlone, HelpsWithExamples) {
    const TFinished help = Cli({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, HasSubstr("Examples:"));
    EXPECT_EQ(Cli({"get", "--help"}).status, 0);
}

TEST(OstelcliAlone, RefusesAWrongCommandLine) {
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"nonsense"},
        {"get"},
        {"set"},
        {"--nonsense"},
        {"active"},
        {"watch", "--count", "0"},
        {"watch", "--count", "-1"},
        {"watch", "--count", ""},
        {"watch", "--count", "1e3"},
        {"watch", "--count", "99999999999999999999"},
        {"event"},
        {"watch", "--count", "x"},
        {"event", "NAME"},
        {"commit", "x"}};
    for (const auto& arguments : wrong) {
        const TFinished one = Cli(arguments);
        EXPECT_EQ(one.status, 64);
        EXPECT_NE(one.errors, "");
        EXPECT_EQ(one.output, "");
    }
    EXPECT_THAT(Cli({"watch", "--count", "0"}).errors,
                HasSubstr("0 is not a number of at least 1"));
}

TEST_F(Ostelcli, NamesTheVerbThatItDoesNotKnow) {
    EXPECT_THAT(Cli({"gte", "Device.Time."}).errors, StartsWith("'gte' is not known\n"));
    EXPECT_THAT(Cli({"remote", "127.0.0.1", "gte"}).errors, StartsWith("'gte' is not known\n"));
    EXPECT_THAT(Cli({"get"}).errors, StartsWith("NAME is required\n"));
}

// The processes that the script prints behind "programs=".
std::vector<pid_t> Programs(const std::string& output) {
    std::smatch programs;
    if (!std::regex_search(output, programs, std::regex("programs=(.+)\n"))) {
        ADD_FAILURE() << output;
        return {};
    }
    std::istringstream pids(programs[1]);
    return {std::istream_iterator<pid_t>(pids), {}};
}

TEST(Shell, HasBusGatewayAndToolAndLeavesNothingBehind) {
    const TFinished shell = RunProgram(
        {"env", std::string("OSTEL_BIN=") + OSTEL_BIN, OSTEL_SHELL},
        "ostelcli get Device.DeviceInfo.SerialNumber\necho bus=$DBUS_SYSTEM_BUS_ADDRESS\n"
        "echo programs=$(cat /proc/$PPID/task/$PPID/children)\nexit 3\n");
    EXPECT_EQ(shell.status, 0) << shell.errors;
    EXPECT_THAT(shell.output, HasSubstr("Device.DeviceInfo.SerialNumber  KV0123456789\n"));
    std::smatch bus;
    ASSERT_TRUE(std::regex_search(shell.output, bus, std::regex("bus=unix:path=(.*)/unit/")))
        << shell.output;
    EXPECT_FALSE(std::filesystem::exists(bus[1].str())) << bus[1];
    const std::vector<pid_t> programs = Programs(shell.output);
    EXPECT_EQ(programs.size(), 3U) << "bus, gateway and shell";
    for (const pid_t pid : programs) {
        EXPECT_EQ(kill(pid, 0), -1) << pid;
    }
}

// The tour starts its programs in the same way: left over, they would keep its turn and the
// addresses that the next one needs.
TEST(Shell, TakesBusAndGatewayWithItWhenItIsKilled) {
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    const TempDir dir;
    ChildProcess shell({"env", "TMPDIR=" + dir.Path().string(),
                        std::string("OSTEL_BIN=") + OSTEL_BIN, OSTEL_SHELL},
                       "echo programs=$(cat /proc/$PPID/task/$PPID/children)\nkill -KILL $PPID\n");
    EXPECT_EQ(shell.Wait(), -SIGKILL);
    const std::vector<pid_t> programs = Programs(shell.Output());
    ASSERT_EQ(programs.size(), 3U) << "bus, gateway and shell";
    for (const pid_t pid : programs) {
        EXPECT_TRUE(WaitUntil([&] { return waitpid(pid, nullptr, WNOHANG) == pid; })) << pid;
    }
}

TEST(Shell, EndsWithTheGatewayThatOnlyTellsItsVersion) {
    const TFinished shell = RunProgram(
        {"env", std::string("OSTEL_BIN=") + OSTEL_BIN, OSTEL_SHELL, "--version"}, "echo open\n");
    EXPECT_EQ(shell.status, 0) << shell.errors;
    EXPECT_EQ(shell.output, "1.7.9\n");
}

class Tour : public testing::Test {
protected:
    // With a gateway that does not start.
    Tour() { RunProgram({"ln", "-s", "/bin/false", m_Dir.File("ostel-gateway")}); }

    TempDir m_Dir;
    const std::vector<std::string> m_Command = {"env", "OSTEL_BIN=" + m_Dir.Path().string(),
                                                OSTEL_DEMO};
};

TEST_F(Tour, FailsWhenAProgramDoes) {
    ChildProcess tour(m_Command);
    EXPECT_EQ(tour.Wait(std::chrono::seconds(100)), 1);
    EXPECT_THAT(tour.Errors(), testing::EndsWith("the program ended: gateway\n"));
}

TEST_F(Tour, WaitsForAnotherOneToEnd) {
    const int other = open("/tmp", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    ChildProcess tour(m_Command);
    EXPECT_TRUE(tour.WaitForErrors("tour: waiting for another one to end\n"));
    EXPECT_EQ(tour.Output(), "");
    close(other);
    EXPECT_EQ(tour.Wait(std::chrono::seconds(100)), 1);
    EXPECT_THAT(tour.Errors(), testing::EndsWith("the program ended: gateway\n"));
}

}  // namespace
