// The gateway as applications see it: the real program on a private bus.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <thread>

#include "GatewayFixture.h"
#include "LongTests.h"
#include "TOstelJsonObject.h"
#include "WaitUntil.h"

namespace {

using testing::HasSubstr;

const std::string LED = "Device.X_KAVEN_COM_General.LED.State";
const std::string BRIGHTNESS = "Device.X_KAVEN_COM_General.LED.Brightness";

// The changes of parameters that the peer was told.
std::vector<std::string> ChangesOf(const RawPeer& peer) {
    std::vector<std::string> changes;
    for (const RawPeer::TMessage& message : peer.Received()) {
        if (message.member == "EVENT_TYPE_PARAM_CHANGED") {
            changes.push_back(message.text);
        }
    }
    return changes;
}

TEST_F(Gateway, ReadsNamesPartialPathsAndStars) {
    EXPECT_EQ(Value("Device.DeviceInfo.SerialNumber"), "KV0123456789");
    std::vector<TOstelApplication::TOstelAppParam> params;
    EXPECT_EQ(m_App.GetParam("Device.", params), RC_SUCCESS);
    EXPECT_GE(params.size(), 400U);
    EXPECT_EQ(m_App.GetParam("Device.Hosts.Host.*.HostName", params), RC_SUCCESS);
    EXPECT_EQ(params.size(), 4U);
    EXPECT_EQ(m_App.GetParam("Device.Nothing", params), RC_INVALID_PARAM_NAME);
}

TEST_F(Gateway, StagesWritesUntilTheCommit) {
    EXPECT_EQ(m_App.SetParam(LED, "BLINK", false), RC_SUCCESS);
    EXPECT_EQ(m_App.SetParam(BRIGHTNESS, "5", false), RC_SUCCESS);
    EXPECT_EQ(Value(LED), "ON");
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    EXPECT_EQ(Value(LED), "BLINK");
    EXPECT_EQ(Value(BRIGHTNESS), "5");
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
}

TEST_F(Gateway, AWriteWithCommitAppliesWhatWasStagedToo) {
    EXPECT_EQ(m_App.SetParam(BRIGHTNESS, "5", false), RC_SUCCESS);
    EXPECT_EQ(m_App.SetParam(LED, "BLINK", true), RC_SUCCESS);
    EXPECT_EQ(Value(BRIGHTNESS), "5");
}

TEST_F(Gateway, RefusesByTheDocumentedCodes) {
    EXPECT_EQ(m_App.SetParam("Device.Nothing", "x", true), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_App.SetParam(LED, "PURPLE", true), RC_INVALID_PARAM_VALUE);
    EXPECT_EQ(m_App.SetParam(BRIGHTNESS, "101", true), RC_INVALID_PARAM_VALUE);
    EXPECT_EQ(m_App.SetParam(BRIGHTNESS, "bright", true), RC_INVALID_PARAM_VALUE);
    EXPECT_EQ(m_App.SetParam("Device.DeviceInfo.SerialNumber", "x", true), RC_NOT_SUPPORTED);
    EXPECT_EQ(m_App.SetParam(LED, "\xFF", true), RC_INVALID_ARGUMENT);
    EXPECT_EQ(m_App.SetParam(LED, std::string("ON\0", 3), true), RC_INVALID_ARGUMENT);
    EXPECT_EQ(Value(LED), "ON");
}

TEST_F(Gateway, AnswersMalformedRequestsWithInvalidArgument) {
    RawPeer peer;
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    for (const std::string& text :
         {std::string(), std::string("{"), std::string("[]"), std::string("nonsense"), deep,
          std::string("{}"), std::string(R"({"NAME":5})"), std::string(R"({"NAME":null})"),
          std::string(R"({"NAME":["Device."]})")}) {
        EXPECT_EQ(Request(peer, "GET_PARAM", text), (std::pair<std::string, int>("{}", 1)))
            << text.substr(0, 50);
    }
    for (const char* text :
         {R"({"NAME":"Device.X","VALUE":"x"})",
          R"({"NAME":"Device.X","VALUE":"x","COMMIT":"true"})",
          R"({"NAME":"Device.X","VALUE":5,"COMMIT":true})", R"({"VALUE":"x","COMMIT":true})"}) {
        EXPECT_EQ(Request(peer, "SET_PARAM", text), (std::pair<std::string, int>("{}", 1))) << text;
    }
    // Alone in the platform's codes, of which 3 stands for an invalid argument.
    EXPECT_EQ(Request(peer, "COMMIT", "{"), (std::pair<std::string, int>("{}", 3)));
    EXPECT_EQ(Request(peer, "GET_PARAM", R"({"NAME":")" + std::string(10 << 20, 'x') + R"("})"),
              (std::pair<std::string, int>(R"({"PARAMS":[]})", 4)));
    EXPECT_EQ(Value("Device.DeviceInfo.SerialNumber"), "KV0123456789");
}

// The text among the first arguments is the request, whatever else is there.
TEST_F(Gateway, AnswersCallsOfAnyShape) {
    RawPeer peer;
    const char* const name = R"({"NAME":"Device.DeviceInfo.SerialNumber"})";
    const dbus_int32_t number = 7;
    const std::string found =
        R"({"PARAMS":[{"NAME":"Device.DeviceInfo.SerialNumber","VALUE":"KV0123456789"}]})";
    const auto structure = [name](DBusMessage* call) {
        DBusMessageIter arguments;
        DBusMessageIter members;
        dbus_message_iter_init_append(call, &arguments);
        dbus_message_iter_open_container(&arguments, DBUS_TYPE_STRUCT, nullptr, &members);
        dbus_message_iter_append_basic(&members, DBUS_TYPE_STRING, &name);
        dbus_message_iter_close_container(&arguments, &members);
    };
    const struct {
        const char* shape;
        std::function<void(DBusMessage*)> append;
        std::pair<std::string, int> reply;
    } cases[] = {
        {"nothing", [](DBusMessage*) {}, {"{}", 1}},
        {"a number first",
         [&](DBusMessage* call) {
             dbus_message_append_args(call, DBUS_TYPE_INT32, &number, DBUS_TYPE_STRING, &name,
                                      DBUS_TYPE_INVALID);
         },
         {found, 0}},
        {"only a number",
         [&](DBusMessage* call) {
             dbus_message_append_args(call, DBUS_TYPE_INT32, &number, DBUS_TYPE_INVALID);
         },
         {"{}", 1}},
        {"five arguments",
         [&](DBusMessage* call) {
             dbus_message_append_args(call, DBUS_TYPE_STRING, &name, DBUS_TYPE_INT32, &number,
                                      DBUS_TYPE_INT32, &number, DBUS_TYPE_INT32, &number,
                                      DBUS_TYPE_INT32, &number, DBUS_TYPE_INVALID);
         },
         {found, 0}},
        {"a structure", structure, {"{}", 1}},
    };
    for (const auto& one : cases) {
        DBusMessage* const call = RawPeer::NewCall("OSTEL_DISPATCHER", "GET_PARAM");
        one.append(call);
        EXPECT_EQ(Reply(peer, call), one.reply) << one.shape;
    }
    EXPECT_EQ(Request(peer, "NO_SUCH_REQUEST", "{}").second, -1);
}

TEST_F(Gateway, BearsEventsOfAnyShape) {
    RawPeer peer;
    const auto send = [&](const char* event, const std::string& data) {
        DBusMessage* const signal =
            dbus_message_new_signal("/com/Kaven/Ostel/OSTEL_MVA", "com.Kaven.Ostel.Ostel", event);
        const char* const text = data.c_str();
        dbus_message_append_args(signal, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
        peer.Send(signal);
    };
    for (const char* event : {"EVENT_TYPE_PARAM_CHANGED", "REMOTE_DATA_MODEL_CHANGED",
                              "EVENT_TYPE_CLIENT_CONNECTED", "APP_CONNECTED", "ANY"}) {
        for (const std::string& data :
             {std::string(), std::string("{"), std::string("[]"), std::string(100000, '['),
              std::string(10 << 20, 'x'), std::string(R"({"DATA_MODEL_NAME":5})")}) {
            send(event, data);
        }
    }
    EXPECT_EQ(Value("Device.DeviceInfo.SerialNumber"), "KV0123456789");
    EXPECT_EQ(m_Gateway.Process().Errors(), "");
}

// Whoever takes the gateway's id has it until it leaves.
TEST_F(Gateway, ServesAgainAfterAnotherProcessHadItsId) {
    {
        const std::unique_ptr<TOstelIpc> other(newOstelIpcInstance());
        other->Init("OSTEL_DISPATCHER");
        other->Run();
        EXPECT_EQ(Value("Device.DeviceInfo.SerialNumber"), "not read");
    }
    EXPECT_TRUE(
        WaitUntil([&] { return Value("Device.DeviceInfo.SerialNumber") == "KV0123456789"; }));
}

TEST_F(Gateway, ASecondOneOnTheSameBusIsRefused) {
    TempDir dir;
    const TFinished second = RunProgram({OSTEL_GATEWAY, "--state", dir.File("another")});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors, "ostel-gateway: another OSTEL_DISPATCHER is on this bus already\n");
    EXPECT_EQ(second.output, "");
    EXPECT_EQ(Value("Device.DeviceInfo.SerialNumber"), "KV0123456789");
}

TEST_F(Gateway, EndsWithAMessageWhenTheBusIsGone) {
    m_Bus.Kill();
    EXPECT_EQ(m_Gateway.Process().Wait(), 1);
    EXPECT_EQ(m_Gateway.Process().Errors(), "ostel-gateway: the bus is gone\n");
}

TEST_F(Gateway, SendsOneSignalForEachParameterThatChanged) {
    const RawPeer peer;
    m_App.SetParam(LED, "BLINK", false);
    m_App.SetParam(BRIGHTNESS, "80", false);
    m_App.SetParam("Device.Time.NTPServer3", "ntp3.example.net", false);
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    m_App.SendEvent("LAST", "");
    ASSERT_TRUE(peer.WaitForMember("LAST"));
    EXPECT_THAT(
        ChangesOf(peer),
        testing::ElementsAre(R"({"DATA_MODEL_NAME":"Device.Time.NTPServer3",)"
                             R"("DATA_MODEL_VALUE":"ntp3.example.net"})",
                             R"({"DATA_MODEL_NAME":")" + LED + R"(","DATA_MODEL_VALUE":"BLINK"})"));
}

TEST_F(Gateway, CommittedValuesSurviveACrashAndStagedOnesDoNot) {
    EXPECT_EQ(m_App.SetParam(LED, "PULSE", true), RC_SUCCESS);
    EXPECT_EQ(m_App.SetParam(BRIGHTNESS, "1", false), RC_SUCCESS);
    m_Gateway.KillAndRestart();
    EXPECT_EQ(Value(LED), "PULSE");
    EXPECT_EQ(Value(BRIGHTNESS), "80");
}

// As on a full disk: no file of the gateway may grow.
TEST_F(Gateway, ACommitThatCannotBeStoredChangesNothingAndWaitsForTheNext) {
    std::signal(SIGXFSZ, SIG_IGN);  // which the next gateway inherits
    m_Gateway.KillAndRestart();
    RawPeer peer;
    rlimit limit{};
    ASSERT_EQ(prlimit(m_Gateway.Process().Pid(), RLIMIT_FSIZE, nullptr, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(prlimit(m_Gateway.Process().Pid(), RLIMIT_FSIZE, &none, nullptr), 0);
    EXPECT_EQ(m_App.SetParam(LED, "BLINK", true), RC_FAILURE);
    // The platform's own code, of which 1 stands for a failure.
    EXPECT_EQ(Request(peer, "COMMIT", "{}"), (std::pair<std::string, int>("{}", 1)));
    EXPECT_EQ(m_App.Commit(), RC_FAILURE);
    EXPECT_EQ(Value(LED), "ON");
    ASSERT_EQ(prlimit(m_Gateway.Process().Pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    EXPECT_EQ(Value(LED), "BLINK");
    m_App.SendEvent("LAST", "");
    ASSERT_TRUE(peer.WaitForMember("LAST"));
    EXPECT_THAT(ChangesOf(peer), testing::ElementsAre(HasSubstr("BLINK")));
}

// Two parameters are always committed together; at no moment may a crash separate them.
TEST_F(Gateway, ACommitIsWholeWheneverTheGatewayIsKilled) {
    const std::string first = "Device.Time.NTPServer4";
    const std::string second = "Device.Time.NTPServer5";
    std::string committed;
    std::atomic<int> attempt{0};
    for (int round = 0; round < Rounds(20, 200); ++round) {
        // At another moment in each round, once writing has begun.
        std::thread killer([&, begin = attempt.load()] {
            EXPECT_TRUE(WaitUntil([&] { return attempt > begin + 1; }));
            std::this_thread::sleep_for(std::chrono::microseconds(round * 700 % 3000));
            m_Gateway.Process().Signal(SIGKILL);
        });
        std::string tried;
        while (true) {
            tried = "n" + std::to_string(++attempt) + ".example.net";
            if (m_App.SetParam(first, tried, false) != RC_SUCCESS ||
                m_App.SetParam(second, tried, true) != RC_SUCCESS) {
                break;
            }
            committed = tried;
        }
        killer.join();
        m_Gateway.KillAndRestart();
        const std::string value = Value(first);
        EXPECT_EQ(Value(second), value);
        EXPECT_TRUE(value == committed || value == tried) << value << " " << committed;
        committed = value;
    }
    EXPECT_GE(attempt, 40);
}

TEST_F(Gateway, AnnouncesApplicationsThatComeAndGo) {
    const RawPeer watcher;
    { const RawPeer application("OSTEL_MVA"); }
    ASSERT_TRUE(watcher.WaitForMember("APP_DISCONNECTED"));
    std::vector<std::string> seen;
    for (const RawPeer::TMessage& message : watcher.Received()) {
        if (message.member == "APP_CONNECTED" || message.member == "APP_DISCONNECTED") {
            seen.push_back(message.member + "=" + message.text);
        }
    }
    EXPECT_THAT(seen,
                testing::IsSupersetOf({"APP_CONNECTED=OSTEL_MVA", "APP_DISCONNECTED=OSTEL_MVA"}));
}

TEST_F(Gateway, EndsCleanlyOnItsSignals) {
    for (const int signal : {SIGTERM, SIGINT}) {
        m_Gateway.Process().Signal(signal);
        EXPECT_EQ(m_Gateway.Process().Wait(), 0);
        EXPECT_EQ(m_Gateway.Process().Errors(), "");
        m_Gateway.KillAndRestart();
    }
}

TEST_F(Gateway, ASecondOneOnTheSameStateIsRefused) {
    EXPECT_EQ(m_App.SetParam(LED, "BLINK", true), RC_SUCCESS);
    const TFinished second = RunProgram({OSTEL_GATEWAY, "--state", m_Gateway.StateFile()});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors,
              "ostel-gateway: " + m_Gateway.StateFile() + ": in use by another gateway\n");
}

// What it prints must reach neither the state file nor a connection.
TEST(GatewayStart, PutsNothingInThePlaceOfClosedStandardStreams) {
    const PrivateBus bus;
    TempDir dir;
    TOstelApplication& app = *TOstelApplication::GetInstance();
    app.Initialize(OSTEL_CLI);
    const struct {
        const char* redirections;
        std::vector<int> closed;
    } cases[] = {{"<&-", {0}}, {">&-", {1}}, {"2>&-", {2}}, {"<&- >&- 2>&-", {0, 1, 2}}};
    for (const auto& one : cases) {
        const ChildProcess gateway(
            {"sh", "-c",
             "exec " OSTEL_GATEWAY " --state " + dir.File("state") + " " + one.redirections});
        std::string value;
        ASSERT_TRUE(WaitUntil([&] { return app.GetParam(LED, value) == RC_SUCCESS; }))
            << one.redirections;
        EXPECT_EQ(app.SetParam(LED, value == "BLINK" ? "PULSE" : "BLINK", true), RC_SUCCESS);
        for (const int place : one.closed) {
            EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(gateway.Pid()) +
                                                    "/fd/" + std::to_string(place)),
                      "/dev/null")
                << one.redirections << " " << place;
        }
    }
}

TEST(GatewayStart, RefusesADamagedStateWithAMessage) {
    const PrivateBus bus;
    TempDir dir;
    std::ofstream(dir.File("state")) << "not a database";
    const TFinished gateway = RunProgram({OSTEL_GATEWAY, "--state", dir.File("state")});
    EXPECT_EQ(gateway.status, 1);
    EXPECT_EQ(gateway.errors,
              "ostel-gateway: " + dir.File("state") + ": not a state file of the gateway\n");
}

TEST(GatewayStart, RefusesAMissingModelWithAMessage) {
    TempDir dir;
    const TFinished gateway = RunProgram(
        {OSTEL_GATEWAY, "--state", dir.File("state"), "--model", dir.File("missing.json")});
    EXPECT_EQ(gateway.status, 1);
    EXPECT_EQ(gateway.errors,
              "ostel-gateway: " + dir.File("missing.json") + ": No such file or directory\n");
}

TEST(GatewayStart, WithoutABusSaysSo) {
    TempDir dir;
    const TFinished gateway = RunProgram({OSTEL_GATEWAY, "--state", dir.File("state")});
    EXPECT_EQ(gateway.status, 1);
    EXPECT_EQ(gateway.errors,
              "ostel-gateway: cannot connect to the bus at DBUS_SYSTEM_BUS_ADDRESS, "
              "'unix:path=/nonexistent'\n");
}

TEST(GatewayStart, RefusesAWrongCommandLine) {
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{"--unknown"}, {"--fill", "many"}, {"--files", "/tmp"}}) {
        std::vector<std::string> command = {OSTEL_GATEWAY};
        command.insert(command.end(), options.begin(), options.end());
        const TFinished gateway = RunProgram(command);
        EXPECT_EQ(gateway.status, 64) << options[0];
        EXPECT_THAT(gateway.errors, HasSubstr(options[0]));
    }
}

TEST(GatewayStart, TellsItsVersionAndOptions) {
    EXPECT_EQ(RunProgram({OSTEL_GATEWAY, "--version"}).output, "1.7.9\n");
    const TFinished help = RunProgram({OSTEL_GATEWAY, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, HasSubstr("--state"));
    EXPECT_NE(RunProgram({OSTEL_GATEWAY, "--nonsense"}).status, 0);
}

}  // namespace
