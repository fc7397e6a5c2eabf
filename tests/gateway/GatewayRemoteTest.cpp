// The gateway as other units see it: the real program, asked over mutual TLS.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>

#include "GatewayRemoteFixture.h"
#include "TOstelJsonObject.h"
#include "WaitUntil.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using TParams = std::vector<TOstelApplication::TOstelAppParam>;

const std::string LED = "Device.X_KAVEN_COM_General.LED.State";

TEST_F(GatewayRemote, ReadsWritesAndCommits) {
    TParams params;
    EXPECT_EQ(m_App.GetParamRemote(m_Host, "Device.DeviceInfo.SerialNumber", params), RC_SUCCESS);
    ASSERT_EQ(params.size(), 1U);
    EXPECT_EQ(params[0].value, "KV0123456789");
    EXPECT_EQ(m_App.SetParamRemote(m_Host, LED, "BLINK", false), RC_SUCCESS);
    EXPECT_EQ(Value(LED), "ON");
    EXPECT_EQ(m_App.CommitRemote(m_Host), RC_SUCCESS);
    EXPECT_EQ(Value(LED), "BLINK");
    EXPECT_EQ(m_App.SetParamRemote(m_Host, LED, "PULSE", true), RC_SUCCESS);
    EXPECT_EQ(Value(LED), "PULSE");
}

TEST_F(GatewayRemote, AnswersFailuresWithTheirNames) {
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"GET_PARAM","NAME":"Device.X"})"),
              R"({"STATUS":"RC_INVALID_PARAM_NAME"})");
    EXPECT_EQ(
        Ask(R"({"REQUEST_TYPE":"SET_PARAM","NAME":")" + LED + R"(","VALUE":"X","COMMIT":true})"),
        R"({"STATUS":"RC_INVALID_PARAM_VALUE"})");
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"NO_SUCH"})"), R"({"STATUS":"RC_NOT_SUPPORTED"})");
    for (const char* request :
         {"{}", "nonsense", R"({"REQUEST_TYPE":5})", R"({"REQUEST_TYPE":"GET_PARAM"})",
          R"({"REQUEST_TYPE":"GET_FILE"})", R"({"REQUEST_TYPE":"SEND_EVENT","EVENT_NAME":"E"})",
          R"({"REQUEST_TYPE":"SUBSCRIBE"})", R"({"REQUEST_TYPE":"UNSUBSCRIBE"})",
          R"({"REQUEST_TYPE":"SUBSCRIBE","EVENT_NAME":"OTHER","PARAMS":[],"SERIAL_NUMBER":"S"})",
          R"({"REQUEST_TYPE":"GET_PARAM","NAME":null})", R"({"a":[}]})",
          "{\"REQUEST_TYPE\":\"COMMIT\",\"X\":\"\xff\"}"}) {
        EXPECT_EQ(Ask(request), R"({"STATUS":"RC_INVALID_ARGUMENT"})") << request;
    }
    // The last of repeated keys holds, unknown ones do not matter.
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"NO","REQUEST_TYPE":"COMMIT","X":1})"), R"({"STATUS":"OK"})");
}

TEST_F(GatewayRemote, ADocumentThatIsTooLongForAnAnswerIsAFailure) {
    TParams params;
    EXPECT_EQ(m_App.GetParamRemote(m_Host, "Device.", params), RC_FAILURE);
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"GET_PARAM","NAME":"Device."})"),
              R"({"STATUS":"RC_BUFFER_OVERFLOW"})");
    EXPECT_EQ(m_App.GetParamRemote(m_Host, "Device.Time.", params), RC_SUCCESS);
    EXPECT_EQ(params.size(), 9U);
}

TEST_F(GatewayRemote, GivesFilesOfItsDirectoryOnly) {
    std::vector<char> bytes;
    EXPECT_EQ(m_App.GetFileRemote(m_Host, "log.txt", bytes), RC_SUCCESS);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "the log\n");
    for (const char* name : {"../secret", "/etc/passwd", "missing", "", "."}) {
        EXPECT_EQ(m_App.GetFileRemote(m_Host, name, bytes), RC_FAILURE) << name;
        EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"GET_FILE","FILE_NAME":")" + std::string(name) + "\"}"),
                  R"({"STATUS":"RC_NOT_FOUND"})");
    }
}

TEST_F(GatewayRemote, GivesFilesAsLongAsAnAnswerMayBe) {
    std::vector<char> bytes;
    EXPECT_EQ(m_App.GetFileRemote(m_Host, "most", bytes), RC_SUCCESS);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), std::string(1048575, 'x'));
    EXPECT_EQ(m_App.GetFileRemote(m_Host, "more", bytes), RC_FAILURE);
}

TEST_F(GatewayRemote, OutlivesPeersThatLeaveInTheMiddleOfAnAnswer) {
    for (int i = 0; i < 10; ++i) {
        const TFinished client = RunProgram(
            {"sh", "-c",
             R"(printf '{"REQUEST_TYPE":"GET_FILE","FILE_NAME":"most"}' | openssl s_client -quiet )"
             "-connect " +
                 m_Host + ":42042 -cert " + m_Unit + "ostel.cert.pem -key " + m_Unit +
                 "ostel.key.pem -CAfile " + m_Unit + "ostelRoot.cert.pem | head -c 9"});
        EXPECT_EQ(client.output.size(), 9U);
    }
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"COMMIT"})"), R"({"STATUS":"OK"})");
    // Whether the last write of an answer meets an end that is closed is up to the moment.
    std::ifstream status("/proc/" + std::to_string(m_Gateway.Process().Pid()) + "/status");
    std::string word;
    while (status >> word && word != "SigIgn:") {
    }
    std::uint64_t ignored = 0;
    ASSERT_TRUE(status >> std::hex >> ignored);
    EXPECT_NE(ignored & (std::uint64_t{1} << (SIGPIPE - 1)), 0U);
}

TEST_F(GatewayRemote, BroadcastsEventsOnItsBus) {
    const RawPeer watcher;
    EXPECT_EQ(m_App.SendEventRemote(m_Host, "HELLO", "{\"a\":1}"), RC_SUCCESS);
    EXPECT_TRUE(watcher.WaitForMember("HELLO"));
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"SEND_EVENT","EVENT_NAME":"not a name","EVENT_DATA":""})"),
              R"({"STATUS":"RC_RUNTIME_ERROR"})");
}

TEST_F(GatewayRemote, TellsSubscribersOfChanges) {
    const TlsPeer subscriber({m_Unit}, TlsPeer::Framed(R"({"STATUS":"OK"})"));
    const std::string request = R"("EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED","PARAMS":[{"NAME":")" +
                                LED + R"("}],"SERIAL_NUMBER":"S1"})";
    const std::vector<std::string> from = {"-bind", subscriber.Host() + ":0"};
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"SUBSCRIBE",)" + request, from),
              R"({"PARAMS":[{"NAME":")" + LED + R"(","VALUE":"ON"}],"STATUS":"OK"})");
    EXPECT_EQ(m_App.SetParam("Device.Time.NTPServer3", "x", true), RC_SUCCESS);
    EXPECT_EQ(m_App.SetParam(LED, "BLINK", true), RC_SUCCESS);
    ASSERT_TRUE(subscriber.WaitForRequest());
    EXPECT_EQ(subscriber.Requests().at(0),
              R"({"REQUEST_TYPE":"SEND_EVENT","EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED",)"
              R"("EVENT_DATA":"{\"SERIAL_NUMBER\":\"KV0123456789\",\"NAME\":\")" +
                  LED + R"(\",\"VALUE\":\"BLINK\"}"})");
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"UNSUBSCRIBE",)" + request, from), R"({"STATUS":"OK"})");
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"UNSUBSCRIBE",)" + request, from), R"({"STATUS":"OK"})");
    // What comes after it shows that this one does not.
    EXPECT_THAT(Ask(R"({"REQUEST_TYPE":"SUBSCRIBE","EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED",)"
                    R"("PARAMS":[{"NAME":"Device.Time.NTPServer3"}],"SERIAL_NUMBER":"S1"})",
                    from),
                HasSubstr("OK"));
    EXPECT_EQ(m_App.SetParam(LED, "ON", true), RC_SUCCESS);
    EXPECT_EQ(m_App.SetParam("Device.Time.NTPServer3", "y", true), RC_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return subscriber.Requests().size() > 1; }));
    EXPECT_THAT(subscriber.Requests().at(1), HasSubstr("NTPServer3"));
}

TEST_F(GatewayRemote, SubscribersThatHangOrAreGoneDelayNoLocalRequest) {
    const auto timeOfWrites = [this] {
        const auto start = std::chrono::steady_clock::now();
        for (const char* state : {"BLINK", "ON", "BLINK", "ON", "BLINK", "ON", "BLINK", "ON"}) {
            EXPECT_EQ(m_App.SetParam(LED, state, true), RC_SUCCESS);
        }
        return std::chrono::steady_clock::now() - start;
    };
    const auto alone = timeOfWrites();
    const TlsPeer hanging({m_Unit}, [](TlsPeer::TConnection& connection) {
        while (!connection.Receive().empty()) {
        }
    });
    for (const std::string& address : {hanging.Host(), TlsPeer::AnotherFreeHost()}) {
        EXPECT_THAT(Ask(R"({"REQUEST_TYPE":"SUBSCRIBE","EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED",)"
                        R"("PARAMS":[{"NAME":")" +
                            LED + R"("}],"SERIAL_NUMBER":"S1"})",
                        {"-bind", address + ":0"}),
                    HasSubstr("OK"));
    }
    EXPECT_EQ(m_App.SetParam(LED, "OFF", true), RC_SUCCESS);
    ASSERT_TRUE(hanging.WaitForRequest());
    // An attempt at the one that hangs takes five seconds.
    EXPECT_LT(timeOfWrites(), alone + std::chrono::seconds(4));
}

TEST_F(GatewayRemote, SubscribesToNothingThatItDoesNotHave) {
    EXPECT_EQ(Ask(R"({"REQUEST_TYPE":"SUBSCRIBE","EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED",)"
                  R"("PARAMS":[{"NAME":"Device.X"}],"SERIAL_NUMBER":"S1"})"),
              R"({"STATUS":"RC_INVALID_PARAM_NAME"})");
}

TEST_F(GatewayRemote, WhoIsToldOfAFailureIsNotSubscribed) {
    const TlsPeer subscriber({m_Unit}, TlsPeer::Framed(R"({"STATUS":"OK"})"));
    const std::vector<std::string> from = {"-bind", subscriber.Host() + ":0"};
    const auto subscribe = [&](const std::string& name) {
        return Ask(R"({"REQUEST_TYPE":"SUBSCRIBE","EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED",)"
                   R"("PARAMS":[{"NAME":")" +
                       name + R"("}],"SERIAL_NUMBER":"S1"})",
                   from);
    };
    EXPECT_EQ(subscribe("Device."), R"({"STATUS":"RC_BUFFER_OVERFLOW"})");
    EXPECT_EQ(m_App.SetParam(LED, "BLINK", true), RC_SUCCESS);
    EXPECT_THAT(subscribe(LED), HasSubstr("BLINK"));
    EXPECT_EQ(m_App.SetParam(LED, "OFF", true), RC_SUCCESS);
    ASSERT_TRUE(subscriber.WaitForRequest());
    EXPECT_THAT(subscriber.Requests().at(0), HasSubstr("OFF"));
}

TEST_F(GatewayRemote, EndsCleanly) {
    m_Gateway.Process().Signal(SIGTERM);
    EXPECT_EQ(m_Gateway.Process().Wait(), 0);
}

TEST(GatewayRemoteStart, SaysWhatIsMissing) {
    const PrivateBus bus;
    TempDir dir;
    const auto start = [&](const std::vector<std::string>& options) {
        std::vector<std::string> command = {OSTEL_GATEWAY, "--state", dir.File("state")};
        command.insert(command.end(), options.begin(), options.end());
        return RunProgram(command);
    };
    EXPECT_THAT(start({"--remote-address", "127.0.0.1"}).errors, HasSubstr("--certs"));
    EXPECT_NE(start({"--remote-address", "localhost", "--certs", "/x"}).status, 0);
    EXPECT_THAT(start({"--remote-address", TlsPeer::FreeHost(), "--certs", "/nonexistent"}).errors,
                StartsWith("ostel-gateway: /nonexistent/ostel.cert.pem: "));
    CertificateMaker certificates;
    EXPECT_THAT(start({"--remote-address", TlsPeer::FreeHost(), "--certs",
                       certificates.Unit("unit"), "--files", "/nonexistent"})
                    .errors,
                StartsWith("ostel-gateway: /nonexistent: "));
}

}  // namespace
