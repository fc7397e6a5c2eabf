#include "TOstelEventListener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "RecordingLog.h"
#include "TOstelJsonObject.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using TState = IOstelCpeClientStateObserver::TOstelCpeClientState;
using TTexts = std::vector<std::pair<std::string, std::string>>;

struct TObserver : IOstelObserver {
    void OnEvent(const std::string& name, const std::string& data) override {
        seen.emplace_back(name, data);
    }
    TTexts seen;
};

struct TClientObserver : IOstelCpeClientStateObserver {
    void OnCpeClientStateChanged(TOstelCpeClientState state, const std::string& second,
                                 const std::string& third) override {
        seen.emplace_back(state, second, third);
    }
    std::vector<std::tuple<int, std::string, std::string>> seen;
};

struct TDataModelObserver : IOstelDataModelChangeObserver {
    void OnDataModelParamChanged(const std::string& name, const std::string& value) override {
        seen.emplace_back(name, value);
    }
    TTexts seen;
};

template <typename TException>
struct TThrower : IOstelObserver, IOstelCpeClientStateObserver, IOstelDataModelChangeObserver {
    void OnEvent(const std::string&, const std::string&) override { throw TException("thrown"); }
    void OnCpeClientStateChanged(TOstelCpeClientState, const std::string&,
                                 const std::string&) override {
        throw TException("thrown");
    }
    void OnDataModelParamChanged(const std::string&, const std::string&) override {
        throw TException("thrown");
    }
};

class TOstelEventListenerTest : public testing::Test {
protected:
    TOstelEventListenerTest() {
        m_Listener.AddObserver(&m_Observer);
        m_Listener.AddCpeClientStateObserver(&m_ClientObserver);
        m_Listener.AddDataModelChangeObserver(&m_DataModelObserver);
    }

    bool NobodyWasTold() const {
        return m_Observer.seen.empty() && m_ClientObserver.seen.empty() &&
               m_DataModelObserver.seen.empty();
    }

    TObserver m_Observer;
    TClientObserver m_ClientObserver;
    TDataModelObserver m_DataModelObserver;
    TOstelEventListener m_Listener;
};

const char* const INSTALL_ATTEMPT = "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT";
const char* const PARAM_CHANGED = "EVENT_TYPE_PARAM_CHANGED";
const char* const CLIENT_CONNECTED = "EVENT_TYPE_CLIENT_CONNECTED";

TEST_F(TOstelEventListenerTest, EachClientEventYieldsItsStateWithTheMacAddressBeforeTheHostName) {
    const std::array<const char*, 5> names = {
        "EVENT_TYPE_CLIENT_CONNECTED", "EVENT_TYPE_CLIENT_RECONNECTED",
        "EVENT_TYPE_CLIENT_DISCONNECTED", "EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT",
        "EVENT_TYPE_CLIENT_BLOCKED_ATTEMPT"};
    for (const char* name : names) {
        m_Listener.OnEvent(name, R"({"HOST_NAME":"host","MAC_ADDRESS":"mac"})");
    }
    EXPECT_THAT(m_ClientObserver.seen,
                ElementsAre(std::tuple(0, "mac", "host"), std::tuple(1, "mac", "host"),
                            std::tuple(2, "mac", "host"), std::tuple(3, "mac", "host"),
                            std::tuple(4, "mac", "host")));
    EXPECT_TRUE(m_Observer.seen.empty());
    EXPECT_TRUE(m_DataModelObserver.seen.empty());
}

TEST_F(TOstelEventListenerTest, AMissingHostNameReadsAsEmpty) {
    m_Listener.OnEvent("EVENT_TYPE_CLIENT_RECONNECTED", R"({"MAC_ADDRESS":"m"})");
    EXPECT_THAT(m_ClientObserver.seen, ElementsAre(std::tuple(1, "m", "")));
}

TEST_F(TOstelEventListenerTest, EachMissingMemberReadsAsEmptyByItself) {
    m_Listener.OnEvent(CLIENT_CONNECTED, R"({"HOST_NAME":"h"})");
    m_Listener.OnEvent(PARAM_CHANGED, R"({"DATA_MODEL_NAME":"n"})");
    m_Listener.OnEvent(PARAM_CHANGED, R"({"DATA_MODEL_VALUE":"v"})");
    EXPECT_THAT(m_ClientObserver.seen, ElementsAre(std::tuple(0, "", "h")));
    EXPECT_THAT(m_DataModelObserver.seen, ElementsAre(Pair("n", ""), Pair("", "v")));
}

TEST_F(TOstelEventListenerTest, AMemberThatIsNotATextReadsAsEmpty) {
    m_Listener.OnEvent(CLIENT_CONNECTED, R"({"MAC_ADDRESS":17,"HOST_NAME":["h"]})");
    m_Listener.OnEvent(PARAM_CHANGED, R"({"DATA_MODEL_NAME":null,"DATA_MODEL_VALUE":true})");
    m_Listener.OnEvent(INSTALL_ATTEMPT, R"({"URL":{}})");
    EXPECT_THAT(m_ClientObserver.seen, ElementsAre(std::tuple(0, "", "")));
    EXPECT_THAT(m_DataModelObserver.seen, ElementsAre(Pair("", "")));
    EXPECT_THAT(m_Observer.seen, ElementsAre(Pair(INSTALL_ATTEMPT, "")));
}

TEST_F(TOstelEventListenerTest, ADocumentWithoutMembersYieldsEmptyTexts) {
    for (const char* document : {"{}", "[]", R"(["URL","u"])"}) {
        m_Listener.OnEvent(INSTALL_ATTEMPT, document);
    }
    EXPECT_THAT(m_Observer.seen, ElementsAre(Pair(INSTALL_ATTEMPT, ""), Pair(INSTALL_ATTEMPT, ""),
                                             Pair(INSTALL_ATTEMPT, "")));
}

TEST_F(TOstelEventListenerTest, OtherMembersAreIgnored) {
    m_Listener.OnEvent(CLIENT_CONNECTED, R"({"X":1,"MAC_ADDRESS":"m","HOST_NAME":"h","Y":{}})");
    EXPECT_THAT(m_ClientObserver.seen, ElementsAre(std::tuple(0, "m", "h")));
}

TEST_F(TOstelEventListenerTest, AParameterChangeReachesEveryDataModelObserver) {
    TDataModelObserver second;
    m_Listener.AddDataModelChangeObserver(&second);
    m_Listener.OnEvent(PARAM_CHANGED, R"({"DATA_MODEL_NAME":"Device.X","DATA_MODEL_VALUE":"1"})");
    EXPECT_THAT(m_DataModelObserver.seen, ElementsAre(Pair("Device.X", "1")));
    EXPECT_THAT(second.seen, ElementsAre(Pair("Device.X", "1")));
}

TEST_F(TOstelEventListenerTest, AParameterChangeDoesNotLookAtTheEventsOwnName) {
    m_Listener.OnDataModelChange("ANY_NAME", R"({"DATA_MODEL_NAME":"n","DATA_MODEL_VALUE":"v"})");
    EXPECT_THAT(m_DataModelObserver.seen, ElementsAre(Pair("n", "v")));
}

TEST_F(TOstelEventListenerTest, AnInstallAttemptReachesEveryGeneralObserverWithNameAndUrl) {
    TObserver second;
    m_Listener.AddObserver(&second);
    m_Listener.OnEvent(INSTALL_ATTEMPT, R"({"URL":"u"})");
    EXPECT_THAT(m_Observer.seen, ElementsAre(Pair(INSTALL_ATTEMPT, "u")));
    EXPECT_THAT(second.seen, ElementsAre(Pair(INSTALL_ATTEMPT, "u")));
}

TEST_F(TOstelEventListenerTest, AnUnknownEventIsDroppedWithoutALogLine) {
    RecordingLog::Clear();
    for (const char* name : {"", "EVENT", "event_type_param_changed", "EVENT_TYPE_PARAM_CHANGED ",
                             "APP_EVENT_TYPE_SOFTWARE_UPDATER_DONE"}) {
        m_Listener.OnEvent(name, R"({"URL":"u","DATA_MODEL_NAME":"n","MAC_ADDRESS":"m"})");
    }
    EXPECT_TRUE(NobodyWasTold());
    EXPECT_TRUE(RecordingLog::Lines().empty());
}

TEST_F(TOstelEventListenerTest, AMalformedPayloadIsDroppedWithoutALogLine) {
    const std::string deep(100000, '[');
    for (const std::string& data :
         {std::string(), std::string("text"), std::string(R"({"MAC_ADDRESS":"m")"),
          std::string("{\"URL\":\"\xff\"}"), std::string("\0{}", 3), std::string("{}\0{}", 5),
          std::string("7"), deep, "{\"URL\":" + deep, std::string(10 << 20, 'x')}) {
        m_Listener.OnEvent(CLIENT_CONNECTED, data);
        m_Listener.OnEvent(PARAM_CHANGED, data);
        m_Listener.OnOstelEvent(INSTALL_ATTEMPT, data);
    }
    EXPECT_TRUE(NobodyWasTold());
    // Nothing but the traces of the general events.
    EXPECT_EQ(RecordingLog::Texts(6).size(), 10U);
    EXPECT_EQ(RecordingLog::Lines().size(), 10U);
}

TEST_F(TOstelEventListenerTest, APayloadOfTenMegabytesArrivesWhole) {
    const std::string value(10 << 20, 'v');
    m_Listener.OnEvent(PARAM_CHANGED,
                       R"({"DATA_MODEL_NAME":"n","DATA_MODEL_VALUE":")" + value + "\"}");
    ASSERT_EQ(m_DataModelObserver.seen.size(), 1U);
    EXPECT_TRUE(m_DataModelObserver.seen.front().second == value);
}

TEST_F(TOstelEventListenerTest, ObserversAddedTwiceAreToldOnceAndRemovedAtOnce) {
    m_Listener.AddObserver(&m_Observer);
    m_Listener.AddCpeClientStateObserver(&m_ClientObserver);
    m_Listener.AddDataModelChangeObserver(&m_DataModelObserver);
    m_Listener.NotifyObservers("n", "d");
    m_Listener.NotifyCpeClientStateObservers(TState::CONNECTED, "m", "h");
    m_Listener.NotifyDataModelChangeObservers("n", "v");
    EXPECT_EQ(m_Observer.seen.size(), 1U);
    EXPECT_EQ(m_ClientObserver.seen.size(), 1U);
    EXPECT_EQ(m_DataModelObserver.seen.size(), 1U);

    m_Listener.RemoveObserver(&m_Observer);
    m_Listener.RemoveCpeClientStateObserver(&m_ClientObserver);
    m_Listener.RemoveDataModelChangeObserver(&m_DataModelObserver);
    m_Listener.NotifyObservers("n", "d");
    m_Listener.NotifyCpeClientStateObservers(TState::CONNECTED, "m", "h");
    m_Listener.NotifyDataModelChangeObservers("n", "v");
    EXPECT_EQ(m_Observer.seen.size(), 1U);
    EXPECT_EQ(m_ClientObserver.seen.size(), 1U);
    EXPECT_EQ(m_DataModelObserver.seen.size(), 1U);
}

TEST_F(TOstelEventListenerTest, RemovingAStrangerChangesNothing) {
    TObserver stranger;
    TClientObserver clientStranger;
    TDataModelObserver dataModelStranger;
    m_Listener.RemoveObserver(&stranger);
    m_Listener.RemoveCpeClientStateObserver(&clientStranger);
    m_Listener.RemoveDataModelChangeObserver(&dataModelStranger);
    m_Listener.NotifyObservers("n", "d");
    m_Listener.NotifyCpeClientStateObservers(TState::DISCONNECTED, "m", "h");
    m_Listener.NotifyDataModelChangeObservers("n", "v");
    EXPECT_THAT(m_Observer.seen, ElementsAre(Pair("n", "d")));
    EXPECT_THAT(m_ClientObserver.seen, ElementsAre(std::tuple(2, "m", "h")));
    EXPECT_THAT(m_DataModelObserver.seen, ElementsAre(Pair("n", "v")));
}

TEST(TOstelEventListener, DestructionTellsNobody) {
    TObserver observer;
    {
        TOstelEventListener listener;
        listener.AddObserver(&observer);
    }
    EXPECT_TRUE(observer.seen.empty());
}

TEST_F(TOstelEventListenerTest, GeneralEventsAreTracedUnderLine69WhateverTheirName) {
    RecordingLog::Clear();
    m_Listener.OnOstelEvent("SOME_EVENT", "100% {data}");
    EXPECT_THAT(RecordingLog::Texts(6),
                ElementsAre("[common/framework/TOstelEventListener:69][OnOstelEvent]: SOME_EVENT - "
                            "100% {data}"));
    EXPECT_EQ(RecordingLog::Lines().front().format, "[%s:%d][%s]: %s - %s");
    EXPECT_TRUE(NobodyWasTold());
}

TEST_F(TOstelEventListenerTest, OnlyTheInstallAttemptIsPassedOnAsAGeneralEvent) {
    for (const char* name : {PARAM_CHANGED, CLIENT_CONNECTED, "X"}) {
        m_Listener.OnOstelEvent(name, R"({"URL":"u"})");
    }
    EXPECT_TRUE(NobodyWasTold());
}

TEST_F(TOstelEventListenerTest, TheInstallAttemptIsKnownByEachByteOfItsName) {
    using namespace std::string_literals;
    const std::string attempt = INSTALL_ATTEMPT;
    for (const std::string& name :
         {""s, attempt.substr(1), attempt.substr(0, attempt.size() - 1), attempt + " ",
          attempt + "\0"s, "event_type_sw_update_install_attempt"s}) {
        m_Listener.OnOstelEvent(name, R"({"URL":"u"})");
    }
    EXPECT_TRUE(NobodyWasTold());
}

TEST_F(TOstelEventListenerTest, AClientEventOfAnUnknownNameIsLoggedAndDropped) {
    m_Listener.OnCpeClientStateChange("NO_SUCH_EVENT", R"({"MAC_ADDRESS":"m"})");
    EXPECT_TRUE(NobodyWasTold());
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre("[TOstelDataMapper] Can't find enum (tOstelPltEventType) value for "
                            "string: NO_SUCH_EVENT"));
    EXPECT_EQ(RecordingLog::Lines().back().format, "%s");
}

TEST_F(TOstelEventListenerTest, AnUnknownNameWithAMalformedPayloadIsNotLogged) {
    m_Listener.OnCpeClientStateChange("NO_SUCH_EVENT", "{");
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_F(TOstelEventListenerTest, OtherPlatformEventsAreNoClientStates) {
    m_Listener.OnCpeClientStateChange(PARAM_CHANGED, R"({"MAC_ADDRESS":"m"})");
    m_Listener.OnCpeClientStateChange(INSTALL_ATTEMPT, R"({"MAC_ADDRESS":"m"})");
    EXPECT_TRUE(NobodyWasTold());
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST(TOstelEventListener, ARuntimeErrorOfAGeneralOrClientObserverIsLogged) {
    TThrower<std::runtime_error> thrower;
    TOstelEventListener listener;
    listener.AddObserver(&thrower);
    listener.AddCpeClientStateObserver(&thrower);
    listener.OnEvent(INSTALL_ATTEMPT, "{}");
    listener.OnEvent(CLIENT_CONNECTED, "{}");
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre("thrown", "thrown"));
}

TEST(TOstelEventListener, OtherExceptionsOfObserversPass) {
    TThrower<std::logic_error> thrower;
    TOstelEventListener listener;
    listener.AddObserver(&thrower);
    listener.AddCpeClientStateObserver(&thrower);
    EXPECT_THROW(listener.OnEvent(INSTALL_ATTEMPT, "{}"), std::logic_error);
    EXPECT_THROW(listener.OnEvent(CLIENT_CONNECTED, "{}"), std::logic_error);
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

// Kept: the delivery code logs what comes out of here.
TEST(TOstelEventListener, AParameterChangeCatchesNothing) {
    TThrower<std::runtime_error> thrower;
    TOstelEventListener listener;
    listener.AddDataModelChangeObserver(&thrower);
    EXPECT_THROW(listener.OnEvent(PARAM_CHANGED, "{}"), std::runtime_error);
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST(TOstelEventListener, AnExceptionLeavesTheObserversUnlocked) {
    TThrower<std::runtime_error> thrower;
    TOstelEventListener listener;
    listener.AddDataModelChangeObserver(&thrower);
    EXPECT_THROW(listener.OnEvent(PARAM_CHANGED, "{}"), std::runtime_error);
    listener.RemoveDataModelChangeObserver(&thrower);
    TDataModelObserver observer;
    listener.AddDataModelChangeObserver(&observer);
    listener.OnEvent(PARAM_CHANGED, "{}");
    EXPECT_THAT(observer.seen, ElementsAre(Pair("", "")));
}

TEST(TOstelEventListener, ADerivedClassMayTakeTheEventsOver) {
    struct TDerived : TOstelEventListener {
        void OnOstelEvent(const std::string& name, const std::string&) override {
            taken.push_back(name);
        }
        void OnCpeClientStateChange(const std::string& name, const std::string&) override {
            taken.push_back(name);
        }
        void OnDataModelChange(const std::string& name, const std::string&) override {
            taken.push_back(name);
        }
        std::vector<std::string> taken;
    } listener;
    listener.OnEvent(INSTALL_ATTEMPT, "x");
    listener.OnEvent(CLIENT_CONNECTED, "x");
    listener.OnEvent(PARAM_CHANGED, "x");
    EXPECT_THAT(listener.taken, ElementsAre(INSTALL_ATTEMPT, CLIENT_CONNECTED, PARAM_CHANGED));
}

TEST_F(TOstelEventListenerTest, AHandlerTakesItsEventAndReplacesTheOneBefore) {
    struct THandler : TOstelEventListener::IEventHandler {
        void HandleEvent(const std::string& name, const std::string& data) override {
            seen.emplace_back(name, data);
        }
        TTexts seen;
    };
    THandler first;
    THandler second;
    m_Listener.AddEventHandler(PARAM_CHANGED, first);
    m_Listener.AddEventHandler(PARAM_CHANGED, second);
    m_Listener.AddEventHandler("MINE", first);
    m_Listener.OnEvent(PARAM_CHANGED, "d");
    m_Listener.OnEvent("MINE", "e");
    EXPECT_THAT(first.seen, ElementsAre(Pair("MINE", "e")));
    EXPECT_THAT(second.seen, ElementsAre(Pair(PARAM_CHANGED, "d")));
    EXPECT_TRUE(NobodyWasTold());
}

TEST(TOstelEventListener, ADerivedClassMayTakeTheNotificationsOver) {
    struct TDerived : TOstelEventListener {
        void NotifyObservers(const std::string& name, const std::string& data) override {
            taken.push_back(name + " " + data);
        }
        void NotifyCpeClientStateObservers(TState state, const std::string& macAddress,
                                           const std::string& hostName) override {
            taken.push_back(std::to_string(state) + " " + macAddress + " " + hostName);
        }
        void NotifyDataModelChangeObservers(const std::string& name,
                                            const std::string& value) override {
            taken.push_back(name + " " + value);
        }
        std::vector<std::string> taken;
    } listener;
    listener.OnEvent(INSTALL_ATTEMPT, R"({"URL":"u"})");
    listener.OnEvent(CLIENT_CONNECTED, R"({"MAC_ADDRESS":"m","HOST_NAME":"h"})");
    listener.OnEvent(PARAM_CHANGED, R"({"DATA_MODEL_NAME":"n","DATA_MODEL_VALUE":"v"})");
    EXPECT_THAT(listener.taken, ElementsAre(std::string(INSTALL_ATTEMPT) + " u", "0 m h", "n v"));
}

}  // namespace
