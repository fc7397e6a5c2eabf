// The tool and another unit: a second gateway, and peers that do not answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "CertificateMaker.h"
#include "CliFixture.h"
#include "RawPeer.h"
#include "TlsPeer.h"

namespace {

using testing::HasSubstr;

const std::string LED = "Device.X_KAVEN_COM_General.LED.State";

class RemoteOfTheTool : public testing::Test {
protected:
    RemoteOfTheTool() { std::ofstream(m_Dir.File("log.txt")) << "the log\n"; }

    TFinished Remote(std::vector<std::string> arguments, const std::string& host) const {
        arguments.insert(arguments.begin(), {"remote", "--certs", m_Unit, host});
        return Cli(arguments);
    }

    TFinished Remote(const std::vector<std::string>& arguments) const {
        return Remote(arguments, m_Host);
    }

    CertificateMaker m_Certificates;
    const std::string m_Unit = m_Certificates.Unit("tool");
    TempDir m_Dir;
    const std::string m_Host = TlsPeer::FreeHost();
    PrivateBus m_Bus;
    GatewayProcess m_Gateway{OSTEL_GATEWAY,
                             {"--remote-address", m_Host, "--certs", m_Certificates.Unit("gateway"),
                              "--files", m_Dir.Path().string()}};
};

TEST_F(RemoteOfTheTool, ReadsWritesAndCommits) {
    EXPECT_EQ(Remote({"get", "Device.DeviceInfo.ModelName"}).output,
              "Device.DeviceInfo.ModelName  HG-400\n");
    EXPECT_EQ(Remote({"get", "Device.DeviceInfo.ModelName", "--json"}).output,
              R"({"PARAMS":[{"NAME":"Device.DeviceInfo.ModelName","VALUE":"HG-400"}]})"
              "\n");
    EXPECT_EQ(Remote({"set", LED + "=BLINK", "--no-commit"}).status, 0);
    EXPECT_THAT(Remote({"get", LED}).output, HasSubstr("ON"));
    EXPECT_EQ(Remote({"commit"}).status, 0);
    EXPECT_THAT(Remote({"get", LED}).output, HasSubstr("BLINK"));
    EXPECT_EQ(Remote({"set", LED + "=OFF", "Device.Time.NTPServer3=x"}).status, 0);
    EXPECT_THAT(Remote({"get", LED}).output, HasSubstr("OFF"));
}

TEST_F(RemoteOfTheTool, NeedsNoBusForARequest) {
    const TFinished get =
        RunProgram({"env", "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent", OSTELCLI, "remote",
                    "--certs", m_Unit, m_Host, "get", "Device.DeviceInfo.ModelName"});
    EXPECT_EQ(get.status, 0) << get.errors;
}

TEST_F(RemoteOfTheTool, FetchesFiles) {
    EXPECT_EQ(Remote({"file", "log.txt"}).output, "the log\n");
    EXPECT_EQ(Remote({"file", "log.txt", m_Dir.File("copy")}).status, 0);
    EXPECT_EQ(std::filesystem::file_size(m_Dir.File("copy")), 8U);
    const TFinished missing = Remote({"file", "missing"});
    EXPECT_EQ(missing.status, 255);
    EXPECT_EQ(missing.errors, "ostelcli: " + m_Host + ": missing: RC_FAILURE (-1)\n");
}

TEST_F(RemoteOfTheTool, SendsEvents) {
    const RawPeer watcher;
    EXPECT_EQ(Remote({"event", "HELLO", "{}"}).status, 0);
    EXPECT_TRUE(watcher.WaitForMember("HELLO"));
    EXPECT_EQ(Remote({"event", "not a name", "{}"}).status, 255);
}

TEST_F(RemoteOfTheTool, TellsWhatFailed) {
    EXPECT_EQ(Remote({"get", "Device.Nothing"}).status, 255);
    EXPECT_EQ(Remote({"set", "Device.DeviceInfo.SerialNumber=x"}).status, 255);
    EXPECT_EQ(Remote({"set", "no-equals-sign"}).status, 1);
    for (const char* host : {"localhost", "", "127.1", "127.0.0.1 ", "::1"}) {
        EXPECT_EQ(Remote({"commit"}, host).status, 255) << host;
    }
}

TEST_F(RemoteOfTheTool, SendsNothingWithoutCertificates) {
    const TlsPeer plain({}, TlsPeer::Framed(R"({"STATUS":"OK"})"));
    const TFinished set = Cli({"remote", "--certs", "/nonexistent", plain.Host(), "commit"});
    EXPECT_EQ(set.status, 66);
    EXPECT_EQ(set.errors, "ostelcli: /nonexistent: no usable certificates (the log tells which)\n");
    EXPECT_TRUE(plain.Requests().empty());
}

TEST_F(RemoteOfTheTool, DoesNotWaitForeverForAnAnswer) {
    const TlsPeer silent({m_Certificates.Unit("silent")}, [](TlsPeer::TConnection& connection) {
        while (!connection.Receive().empty()) {
        }
    });
    const TFinished get =
        Cli({"remote", "--certs", m_Unit, "--timeout", "1", silent.Host(), "commit"});
    EXPECT_EQ(get.status, 75);
    EXPECT_EQ(get.errors, "ostelcli: " + silent.Host() + ": no answer within 1 s\n");
}

TEST_F(RemoteOfTheTool, WatchTellsChangesThatCome) {
    const TlsPeer unit({m_Certificates.Unit("watched")},
                       TlsPeer::Framed(R"({"STATUS":"OK","PARAMS":[{"NAME":"A","VALUE":"1"}]})"));
    ChildProcess watch(
        {OSTELCLI, "remote", "--certs", m_Unit, unit.Host(), "watch", "A", "--count", "1"});
    ASSERT_TRUE(watch.WaitForErrors("ostelcli: watching"));
    EXPECT_EQ(watch.Output(), "A  1\n");
    // As this unit's own service passes it on.
    EXPECT_EQ(Remote({"event", "REMOTE_DATA_MODEL_CHANGED",
                      R"({"SERIAL_NUMBER":"S","NAME":"A","VALUE":"2"})"})
                  .status,
              0);
    EXPECT_EQ(watch.Wait(), 0);
    EXPECT_EQ(watch.Output(), "A  1\nREMOTE  S  A  2\n");
    ASSERT_EQ(unit.Requests().size(), 2U);
    EXPECT_THAT(unit.Requests()[0], HasSubstr(R"("REQUEST_TYPE":"SUBSCRIBE")"));
    EXPECT_THAT(unit.Requests()[1], HasSubstr(R"("REQUEST_TYPE":"UNSUBSCRIBE")"));
}

}  // namespace
