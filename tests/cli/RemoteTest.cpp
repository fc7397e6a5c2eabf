// The tool and another unit: a second gateway, and peers that do not answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>

#include "CertificateMaker.h"
#include "CliFixture.h"
#include "RawPeer.h"
#include "TlsPeer.h"

namespace {

using testing::HasSubstr;

const std::string LED = "Device.X_KAVEN_COM_General.LED.State";

void KeepSilent(TlsPeer::TConnection& connection) {
    while (!connection.Receive().empty()) {
    }
}

// The first request, that is; silent from then on.
TlsPeer::TScript AnswersOnce(const std::string& answer) {
    return [answer, answered = std::make_shared<bool>(false)](TlsPeer::TConnection& connection) {
        if (*answered) {
            KeepSilent(connection);
            return;
        }
        connection.Receive();
        *answered = true;
        connection.Send(TlsPeer::Framed(answer));
    };
}

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

// As the help promises.
TEST_F(RemoteOfTheTool, ShowsInTheLogWhatTheUnitRefuses) {
    const TFinished missing = RunProgram({"env", "ZT_LOGGING_DESTINATION=2", OSTELCLI, "remote",
                                          "--certs", m_Unit, m_Host, "get", "Device.Nothing"});
    EXPECT_THAT(missing.output, HasSubstr("failed with 'RC_INVALID_PARAM_NAME'"));
    EXPECT_THAT(Cli({"--help"}).output, HasSubstr("ZT_LOGGING_DESTINATION=2"));
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
    EXPECT_EQ(Remote({"set", "no-equals-sign"}).status, 64);
    for (const char* host : {"localhost", "", "127.1", "127.0.0.1 ", "::1"}) {
        EXPECT_EQ(Remote({"commit"}, host).status, 255) << host;
    }
}

TEST_F(RemoteOfTheTool, SendsNothingWithoutCertificates) {
    const TlsPeer plain({}, TlsPeer::Framed(R"({"STATUS":"OK"})"));
    const TFinished set = Cli({"remote", "--certs", "/nonexistent", plain.Host(), "commit"});
    EXPECT_EQ(set.status, 66);
    EXPECT_EQ(
        set.errors,
        "ostelcli: /nonexistent: no usable certificates (--certs or OSTEL_CERTS names another "
        "directory, the log tells what is wrong with this one)\n");
    EXPECT_TRUE(plain.Requests().empty());
}

TEST_F(RemoteOfTheTool, DoesNotWaitForeverForAnAnswer) {
    const TlsPeer silent({m_Certificates.Unit("silent")}, KeepSilent);
    const TFinished get =
        Cli({"remote", "--certs", m_Unit, "--timeout", "1", silent.Host(), "commit"});
    EXPECT_EQ(get.status, 75);
    EXPECT_EQ(get.errors, "ostelcli: " + silent.Host() + ": no answer within 1 s\n");
}

TEST_F(RemoteOfTheTool, EndsAtASignalWhileItWaitsForAnAnswer) {
    const std::string certificates = m_Certificates.Unit("silent");
    for (const int signal : {SIGINT, SIGTERM}) {
        for (const char* verb : {"commit", "watch"}) {
            const TlsPeer silent({certificates}, KeepSilent);
            std::vector<std::string> command = {OSTELCLI, "remote",      "--certs",
                                                m_Unit,   silent.Host(), verb};
            if (command.back() == "watch") {
                command.emplace_back("A.X");
            }
            ChildProcess waiting(command);
            ASSERT_TRUE(silent.WaitForRequest());
            waiting.Signal(signal);
            EXPECT_EQ(waiting.Wait(), -signal) << verb;
        }
    }
}

TEST_F(RemoteOfTheTool, WaitsHalfAMinuteUnlessToldOtherwise) {
    EXPECT_THAT(Cli({"remote", "--help"}).output,
                testing::ContainsRegex("--timeout [^\n]*30[^0-9]"));
    for (const char* timeout : {"0", "-1", "3601", "x", ""}) {
        EXPECT_EQ(Cli({"remote", "--timeout", timeout, m_Host, "commit"}).status, 64) << timeout;
    }
}

TEST_F(RemoteOfTheTool, ShowsWhatItHasWhenTheUnitFallsSilent) {
    const TlsPeer unit({m_Certificates.Unit("silent")},
                       AnswersOnce(R"({"PARAMS":[{"NAME":"A","VALUE":"1"}],"STATUS":"OK"})"));
    const TFinished get =
        Cli({"remote", "--certs", m_Unit, "--timeout", "3", unit.Host(), "get", "A", "B"});
    EXPECT_EQ(get.status, 75);
    EXPECT_EQ(get.output, "A  1\n");
    EXPECT_EQ(get.errors, "ostelcli: " + unit.Host() + ": no answer within 3 s\n");
}

TEST_F(RemoteOfTheTool, TellsOfTheSilenceAndThatItCouldNotShowWhatItHas) {
    const TlsPeer unit({m_Certificates.Unit("silent")},
                       AnswersOnce(R"({"PARAMS":[{"NAME":"A","VALUE":"1"}],"STATUS":"OK"})"));
    const TFinished get = RunProgram({"sh", "-c",
                                      std::string(OSTELCLI) + " remote --certs " + m_Unit +
                                          " --timeout 3 " + unit.Host() + " get A B > /dev/full"});
    EXPECT_EQ(get.status, 74);
    EXPECT_EQ(get.errors, "ostelcli: " + unit.Host() +
                              ": no answer within 3 s\n"
                              "ostelcli: standard output: No space left on device\n");
}

TEST_F(RemoteOfTheTool, TellsWhatIsLeftStagedWhenALaterValueFails) {
    const TFinished refused =
        Remote({"set", "Device.Time.NTPServer3=x", LED + "=PURPLE", "Device.Time.NTPServer4=y"});
    EXPECT_EQ(refused.status, 255);
    EXPECT_EQ(refused.errors, "ostelcli: 1 earlier values are staged on " + m_Host +
                                  ", not committed\nostelcli: " + m_Host + ": " + LED +
                                  ": RC_FAILURE (-1)\n");
    const TlsPeer unit({m_Certificates.Unit("silent")}, AnswersOnce(R"({"STATUS":"OK"})"));
    const TFinished silent =
        Cli({"remote", "--certs", m_Unit, "--timeout", "3", unit.Host(), "set", "A=1", "B=2"});
    EXPECT_EQ(silent.status, 75);
    EXPECT_EQ(silent.errors, "ostelcli: 1 earlier values are staged on " + unit.Host() +
                                 ", not committed\nostelcli: " + unit.Host() +
                                 ": no answer within 3 s\n");
    EXPECT_EQ(Remote({"set", LED + "=PURPLE"}).errors,
              "ostelcli: " + m_Host + ": " + LED + ": RC_FAILURE (-1)\n");
}

TEST_F(RemoteOfTheTool, SaysThatItHasNoThreadLeft) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer needs the address space that the limit takes";
#endif
    // In kilobytes; no thread can have a stack of that size.
    const std::string stack = sizeof(void*) == 8 ? "8000000000000000" : "3900000";
    const TFinished get = RunProgram({"sh", "-c",
                                      "ulimit -s " + stack + " && exec " + std::string(OSTELCLI) +
                                          " remote --certs " + m_Unit + " " + m_Host + " commit"});
    EXPECT_EQ(get.status, 3);
    EXPECT_THAT(get.errors, HasSubstr("RC_RUNTIME_ERROR (3)\n"));
}

TEST_F(RemoteOfTheTool, SendsNothingWhenAnyOfItsFilesIsMissing) {
    const TlsPeer plain({}, TlsPeer::Framed(R"({"STATUS":"OK"})"));
    for (const char* file : {"ostel.cert.pem", "ostel.key.pem", "ostelRoot.cert.pem"}) {
        const std::string unit = m_Certificates.Unit(file);
        std::filesystem::remove(unit + file);
        EXPECT_EQ(Cli({"remote", "--certs", unit, plain.Host(), "commit"}).status, 66) << file;
    }
    EXPECT_EQ(plain.Ended(), 0);
}

TEST_F(RemoteOfTheTool, TrustsNoStranger) {
    for (const std::string& unit :
         {m_Certificates.SelfSigned("self"), m_Certificates.Foreign("foreign"),
          m_Certificates.Expired("expired")}) {
        const TlsPeer stranger({unit}, TlsPeer::Framed(R"({"STATUS":"OK"})"));
        EXPECT_EQ(Remote({"commit"}, stranger.Host()).status, 255) << unit;
        EXPECT_TRUE(stranger.Requests().empty()) << unit;
    }
}

// The unit that is watched is a script here; what it tells comes over this unit's bus anyway.
TEST_F(RemoteOfTheTool, WatchesTheVeryParametersThatANameStandsFor) {
    const TlsPeer unit(
        {m_Certificates.Unit("watched")},
        TlsPeer::Framed(R"({"PARAMS":[{"NAME":"A.X","VALUE":"1"},{"NAME":"A.Y","VALUE":"2"}],)"
                        R"("STATUS":"OK"})"));
    ChildProcess watch(
        {OSTELCLI, "remote", "--certs", m_Unit, unit.Host(), "watch", "A.", "--count", "1"});
    ASSERT_TRUE(watch.WaitForErrors("ostelcli: watching"));
    EXPECT_EQ(watch.Output(), "A.X  1\nA.Y  2\n");
    // As this unit's own service passes it on.
    for (const std::string name : {"B", "A.Y"}) {
        EXPECT_EQ(Remote({"event", "REMOTE_DATA_MODEL_CHANGED",
                          R"({"SERIAL_NUMBER":"S","NAME":")" + name + R"(","VALUE":"3"})"})
                      .status,
                  0);
    }
    EXPECT_EQ(watch.Wait(), 0);
    EXPECT_EQ(watch.Output(), "A.X  1\nA.Y  2\nREMOTE  S  A.Y  3\n");
    const std::string subscription =
        R"("EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED","PARAMS":[{"NAME":"A.X"},{"NAME":"A.Y"}],)"
        R"("SERIAL_NUMBER":"KV0123456789"})";
    EXPECT_THAT(unit.Requests(),
                testing::ElementsAre(R"({"REQUEST_TYPE":"GET_PARAM","NAME":"A."})",
                                     R"({"REQUEST_TYPE":"SUBSCRIBE",)" + subscription,
                                     R"({"REQUEST_TYPE":"UNSUBSCRIBE",)" + subscription));
}

// What is told last is what holds.
TEST_F(RemoteOfTheTool, ShowsTheValuesBeforeAChangeThatComesAtOnce) {
    std::string answer;
    std::string values;
    for (int i = 10; i < 90; ++i) {
        const std::string name = "A.P" + std::to_string(i);
        answer += (answer.empty() ? "" : ",") + (R"({"NAME":")" + name + R"(","VALUE":"1"})");
        values += name + "  1\n";
    }
    answer = TlsPeer::Framed(R"({"PARAMS":[)" + answer + R"(],"STATUS":"OK"})");
    const RawPeer witness;
    const TlsPeer unit({m_Certificates.Unit("watched")}, [&](TlsPeer::TConnection& connection) {
        if (connection.Receive().find(R"("SUBSCRIBE")") != std::string::npos) {
            Remote({"event", "REMOTE_DATA_MODEL_CHANGED",
                    R"({"SERIAL_NUMBER":"S","NAME":"A.P89","VALUE":"2"})"});
            witness.WaitForMember("REMOTE_DATA_MODEL_CHANGED");
        }
        connection.Send(answer);
    });
    ChildProcess watch(
        {OSTELCLI, "remote", "--certs", m_Unit, unit.Host(), "watch", "A.", "--count", "1"});
    EXPECT_EQ(watch.Wait(), 0);
    EXPECT_EQ(watch.Output(), values + "REMOTE  S  A.P89  2\n");
}

TEST_F(RemoteOfTheTool, StopsWatchingWhenItsBusHasGone) {
    const TlsPeer unit({m_Certificates.Unit("watched")},
                       TlsPeer::Framed(R"({"PARAMS":[{"NAME":"A.X","VALUE":"1"}],"STATUS":"OK"})"));
    ChildProcess watch({OSTELCLI, "remote", "--certs", m_Unit, unit.Host(), "watch", "A.X"});
    ASSERT_TRUE(watch.WaitForErrors("ostelcli: watching"));
    m_Bus.Kill();
    EXPECT_EQ(watch.Wait(), 69);
    EXPECT_THAT(unit.Requests().back(), HasSubstr("UNSUBSCRIBE"));
}

// What the unit refuses is not the fault of this one's gateway, even if that is not there.
TEST_F(RemoteOfTheTool, TellsOfAMissingGatewayOnlyWhenThatStopsTheWatch) {
    m_Gateway.Process().Signal(SIGKILL);
    m_Gateway.Process().Wait();
    const auto refusal = TlsPeer::Framed(R"({"STATUS":"RC_INVALID_PARAM_NAME"})");
    const auto values = TlsPeer::Framed(R"({"PARAMS":[{"NAME":"A.X","VALUE":"1"}],"STATUS":"OK"})");
    const TlsPeer unit({m_Certificates.Unit("watched")}, [&](TlsPeer::TConnection& connection) {
        const bool isKnown = connection.Receive().find("A.X") != std::string::npos;
        connection.Send(isKnown ? values : refusal);
    });
    const std::string failure = "ostelcli: " + unit.Host() + ": RC_FAILURE (-1)\n";
    EXPECT_EQ(Remote({"watch", "A.Y"}, unit.Host()).errors, failure);
    EXPECT_EQ(Remote({"watch", "A.X"}, unit.Host()).errors,
              failure + "ostelcli: no gateway answers on this bus (see 'ostelcli info')\n");
}

TEST_F(RemoteOfTheTool, DoesNotWatchWhatIsNotThere) {
    EXPECT_EQ(Remote({"watch", "Device.Nothing"}).status, 255);
    const TlsPeer unit({m_Certificates.Unit("other")},
                       TlsPeer::Framed(R"({"PARAMS":[],"STATUS":"OK"})"));
    EXPECT_EQ(Remote({"watch", "Device.*.X"}, unit.Host()).status, 6);
}

}  // namespace
