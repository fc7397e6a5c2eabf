// From construction to Initialize, and what the application answers to others.
#include <thread>

#include "ApplicationTest.h"
#include "FaultyIpc.h"
#include "Resources.h"
#include "TOstelDataMapper.h"
#include "WaitUntil.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const char* const UNKNOWN_CLIENT =
    "[TOstelDataMapper] Can't find string for enum (tOstelClientId) value: 99";

// Has a bus, but has not been initialised.
class TOstelApplicationStart : public testing::Test {
protected:
    PrivateBus m_Bus;
    ScriptedDispatcher m_Dispatcher;
    TOstelApplication& m_App = *TOstelApplication::GetInstance();
    std::string m_Value = "before";
};

TEST_F(TOstelApplicationStart, ThereIsOneObject) {
    EXPECT_EQ(TOstelApplication::GetInstance(), &m_App);
}

TEST_F(TOstelApplicationStart, ItsVersionIsTheLibrarys) {
    EXPECT_EQ(m_App.GetVersion(), "1.7.9");
}

TEST_F(TOstelApplicationStart, ARequestBeforeInitializeFailsWithTheIpcCode) {
    EXPECT_EQ(m_App.GetParam("Device.X", m_Value), RC_FAILURE);
    EXPECT_EQ(m_App.Commit(), RC_FAILURE);
    EXPECT_EQ(m_Value, "before");
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre("No server ID provided for 'GET_PARAM' method!",
                                                    "No server ID provided for 'COMMIT' method!"));
    EXPECT_THAT(m_Dispatcher.Requests(), IsEmpty());
}

TEST_F(TOstelApplicationStart, InitializeTakesTheClientsNamesAndRunsTheWorker) {
    EXPECT_FALSE(m_App.IsInitialized());
    m_App.Initialize(OSTEL_QUR_AGENT);
    EXPECT_TRUE(m_App.IsInitialized());
    EXPECT_THAT(RecordingLog::Calls(), ElementsAre("logInit QRM"));
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_QUR_AGENT", "IS_APP_ACTIVE", ""), 0);
}

TEST_F(TOstelApplicationStart, InitializeRoutesEveryMethodToTheDispatcher) {
    m_App.Initialize(OSTEL_KTA);
    std::string server;
    getOstelIpcInstance()->GetMethodServerId("ANY_METHOD", server);
    EXPECT_EQ(server, "OSTEL_DISPATCHER");
}

TEST_F(TOstelApplicationStart, ASecondInitializeDoesNothing) {
    m_App.Initialize(OSTEL_KTA);
    m_App.Initialize(OSTEL_MVA);
    m_App.Initialize(static_cast<tOstelClientId>(99));
    EXPECT_THAT(RecordingLog::Calls(), ElementsAre("logInit KTA"));
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), 0);
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_MVA", "IS_APP_ACTIVE", ""), -1000);
}

TEST_F(TOstelApplicationStart, AnUnknownClientIsRefusedAndALaterOneTaken) {
    m_App.Initialize(static_cast<tOstelClientId>(99));
    EXPECT_FALSE(m_App.IsInitialized());
    // One line of the logger and one of the application object.
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(UNKNOWN_CLIENT, UNKNOWN_CLIENT));
    EXPECT_THAT(RecordingLog::Calls(), IsEmpty());
    m_App.Initialize(OSTEL_KTA);
    EXPECT_TRUE(m_App.IsInitialized());
    EXPECT_THAT(RecordingLog::Calls(), ElementsAre("logInit KTA"));
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), 0);
}

// Notes what it is told to do; each step is taken in the state that the ones before it have left.
class TNotingIpc : public TFaultyIpc<int> {
public:
    explicit TNotingIpc(TOstelApplication& app) : TFaultyIpc(0), m_App(app) {}

    void Init(const std::string& name) override {
        Note("Init " + name);
        // The logger follows its parameters by now: it rereads its settings.
        m_App.NotifyDataModelChangeObservers("Device.X_KAVEN_COM_Applications.Kta.Logging.Level",
                                             "6");
        m_LogCalls = RecordingLog::Calls();
    }
    void AddMethodHandler(const std::string& method, IOstelIpcMethodHandler* handler) override {
        Note("AddMethodHandler " + method + (handler == &m_App ? "" : " of somebody else"));
    }
    void Run() override { Note("Run"); }

    std::vector<std::string> m_Steps;
    std::vector<std::string> m_LogCalls;

private:
    void Note(const std::string& step) {
        std::string server = "nobody";
        GetMethodServerId("*", server);
        m_Steps.push_back(step + ", served by " + server +
                          (m_App.IsInitialized() ? ", too late" : ""));
    }

    TOstelApplication& m_App;
};

// A worker that ran before the handler is there would refuse the first question.
TEST_F(TOstelApplicationStart, InitializeTakesItsStepsInTheirOrder) {
    TNotingIpc ipc(m_App);
    const TIpcInPlace inPlace(ipc);
    m_App.Initialize(OSTEL_KTA);
    EXPECT_TRUE(m_App.IsInitialized());
    EXPECT_THAT(ipc.m_LogCalls, ElementsAre("logInit KTA", "logSync"));
    EXPECT_THAT(ipc.m_Steps,
                ElementsAre("Init OSTEL_KTA, served by nobody",
                            "AddMethodHandler IS_APP_ACTIVE, served by OSTEL_DISPATCHER",
                            "Run, served by OSTEL_DISPATCHER"));
}

// However many threads make their first calls at the same time.
TEST_F(TOstelApplicationStart, InitializeIsDoneOnce) {
    const auto before = Resources::Threads();
    std::vector<std::thread> initializers;
    for (int i = 0; i < 4; ++i) {
        initializers.emplace_back([&] { m_App.Initialize(OSTEL_KTA); });
    }
    for (std::thread& initializer : initializers) {
        initializer.join();
    }
    EXPECT_TRUE(m_App.IsInitialized());
    EXPECT_TRUE(WaitUntil([&] { return Resources::Threads() == before + 1; }));
    EXPECT_THAT(RecordingLog::Calls(), ElementsAre("logInit KTA"));
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), 0);
}

TEST_F(TOstelApplicationStart, WithoutABusInitializeFailsAndALaterOneSucceeds) {
    m_Bus.Kill();
    m_App.Initialize(OSTEL_KTA);
    EXPECT_FALSE(m_App.IsInitialized());
    EXPECT_THAT(RecordingLog::Texts(2), Contains(HasSubstr("dbus_bus_get_private - ")));
    EXPECT_EQ(m_App.GetParam("Device.X", m_Value), RC_FAILURE);
    m_Bus.Start();
    ScriptedDispatcher dispatcher;
    dispatcher.Answer("GET_PARAM", R"({"PARAMS":[{"NAME":"Device.X","VALUE":"1"}]})");
    m_App.Initialize(OSTEL_KTA);
    EXPECT_TRUE(m_App.IsInitialized());
    EXPECT_THAT(RecordingLog::Calls(), ElementsAre("logInit KTA", "logInit KTA"));
    EXPECT_EQ(m_App.GetParam("Device.X", m_Value), RC_SUCCESS);
    EXPECT_EQ(m_Value, "1");
}

TEST_F(TOstelApplicationStart, OnMethodCallKnowsOneMethodAndLeavesTheReplyAlone) {
    std::string reply;
    EXPECT_EQ(m_App.OnMethodCall("IS_APP_ACTIVE", "anything", reply), 0);
    EXPECT_EQ(reply, "");
    reply = "as it was";
    for (const char* method :
         {"", "IS_APP_ACTIV", "IS_APP_ACTIVE ", "is_app_active", "GET_PARAM"}) {
        EXPECT_EQ(m_App.OnMethodCall(method, "anything", reply), -1) << method;
    }
    EXPECT_EQ(m_App.OnMethodCall("IS_APP_ACTIVE", "", reply), 0);
    EXPECT_EQ(reply, "as it was");
}

class TOstelApplicationLife : public ApplicationTest {};

TEST_F(TOstelApplicationLife, OtherApplicationsMayAskOnlyWhetherItIsActive) {
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", "{}"), 0);
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "GET_PARAM", "{}"), -1);
}

TEST_F(TOstelApplicationLife, TheLoggerFollowsTheApplicationsOwnParameters) {
    m_Dispatcher.SendEvent("EVENT_TYPE_PARAM_CHANGED",
                           R"({"DATA_MODEL_NAME":"Device.X_KAVEN_COM_Applications.Kta.)"
                           R"(Logging.Level","DATA_MODEL_VALUE":"6"})");
    // The worker is through with the event when it answers a later call.
    ASSERT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), 0);
    EXPECT_THAT(RecordingLog::Calls(), ElementsAre("logSync"));
}

class TUnitSerialNumber : public ApplicationTest {
protected:
    void AnswerSerialNumber(const std::string& value, int code) {
        m_Dispatcher.Answer(
            "GET_PARAM",
            R"({"PARAMS":[{"NAME":"Device.DeviceInfo.SerialNumber","VALUE":")" + value + "\"}]}",
            code);
    }
};

TEST_F(TUnitSerialNumber, IsFetchedOnce) {
    AnswerSerialNumber("SN1", 0);
    EXPECT_EQ(m_App.GetUnitSerialNumber(), "SN1");
    AnswerSerialNumber("SN2", 0);
    EXPECT_EQ(m_App.GetUnitSerialNumber(), "SN1");
    ASSERT_EQ(m_Dispatcher.Requests().size(), 1U);
    EXPECT_EQ(m_Dispatcher.LastText("GET_PARAM"), R"({"NAME":"Device.DeviceInfo.SerialNumber"})");
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_F(TUnitSerialNumber, IsFetchedOnceForSeveralThreads) {
    AnswerSerialNumber("SN1", 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] { EXPECT_EQ(m_App.GetUnitSerialNumber(), "SN1"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(m_Dispatcher.Requests().size(), 1U);
}

TEST_F(TUnitSerialNumber, IsEmptyAfterAFailureAndFetchedAgain) {
    AnswerSerialNumber("SN1", 4);
    EXPECT_EQ(m_App.GetUnitSerialNumber(), "");
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre("GetUnitSerialNumber could not fetch local Serial Number"));
    EXPECT_EQ(RecordingLog::LastFormat(2), "%s could not fetch local Serial Number");
    AnswerSerialNumber("SN1", 0);
    EXPECT_EQ(m_App.GetUnitSerialNumber(), "SN1");
}

TEST_F(TUnitSerialNumber, AnAnswerWithoutOneIsNoFailureButIsNotKept) {
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[]})");
    EXPECT_EQ(m_App.GetUnitSerialNumber(), "");
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
    AnswerSerialNumber("SN1", 0);
    EXPECT_EQ(m_App.GetUnitSerialNumber(), "SN1");
}

}  // namespace
