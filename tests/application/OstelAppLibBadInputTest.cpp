// The flat interface before its time, with texts, counts and replies that are not what they should
// be, and with failures of every kind below it.
#include <algorithm>
#include <functional>
#include <stdexcept>

#include "FaultyIpc.h"
#include "OstelAppLibTest.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// One of each record, and every request that there is for them.
class TFlatRequests {
public:
    TFlatRequests() {
        m_Object.params = m_Array;
        m_Long.value = m_Param.value;
    }

    struct TRequest {
        const char* type;
        std::function<tOstelReturnCode()> ask;
    };

    std::vector<TRequest> OfTheApplicationObject() {
        return {{"COMMIT", [] { return ostelAppLibCommit(); }},
                {"GET_PARAM", [this] { return ostelAppLibGetParam(&m_Request); }},
                {"SET_PARAM", [this] { return ostelAppLibSetParam(&m_Param, true); }},
                {"GET_PARAM_ARRAY", [this] { return ostelAppLibGetParamArray(&m_Array); }},
                {"SET_PARAM_ARRAY", [this] { return ostelAppLibSetParamArray(&m_Array, true); }},
                {"GET_OBJECT", [this] { return ostelAppLibGetObject(&m_Object); }},
                {"SET_OBJECT", [this] { return ostelAppLibSetObject(&m_Object, true); }},
                {"ADD_OBJECT_INSTANCE",
                 [this] { return ostelAppLibAddObjectInstance("O.", &m_Instance); }},
                {"DELETE_OBJECT_INSTANCE", [] { return ostelAppLibDelObjectInstance("O.1."); }},
                {"GET_OBJECT_INSTANCES", [this] { return ostelAppLibGetObjectIds(&m_Ids); }},
                {"GET_INDEX_MAP", [this] { return ostelAppLibGetIndexMapping(&m_Maps); }}};
    }

    std::vector<TRequest> All() {
        std::vector<TRequest> all = OfTheApplicationObject();
        all.push_back({"GET_LONG_PARAM", [this] { return ostelAppLibGetLongParam(&m_Long); }});
        all.push_back(
            {"SET_LONG_PARAM", [this] { return ostelAppLibSetLongParam(&m_Long, true); }});
        return all;
    }

private:
    tOstelAppLibParam m_Param = {"N", "V"};
    tOstelAppLibParamArray m_Array = {&m_Param, 1};
    tOstelAppLibParamRequest m_Request = {};
    tOstelAppLibObjectRequest m_Object = {};
    tOstelAppLibObjectIdsRequest m_Ids = {};
    tOstelAppLibIndexMapRequest m_Maps = {};
    tOstelAppLibLongParamRequest m_Long = {};
    std::uint32_t m_Instance = 0;
};

class OstelAppLibStart : public testing::Test {
protected:
    PrivateBus m_Bus;
    ScriptedDispatcher m_Dispatcher;
};

TEST_F(OstelAppLibStart, BeforeInitEveryRequestFailsForWantOfAServer) {
    TFlatRequests requests;
    for (const auto& [type, ask] : requests.All()) {
        RecordingLog::Clear();
        EXPECT_EQ(ask(), RC_FAILURE) << type;
        EXPECT_THAT(RecordingLog::Texts(2),
                    ElementsAre("No server ID provided for '" + std::string(type) + "' method!"));
    }
    EXPECT_THAT(m_Dispatcher.Requests(), IsEmpty());
}

TEST_F(OstelAppLibStart, BeforeInitAnEventIsSentAllTheSame) {
    const RawPeer witness;
    ostelAppLibSendEvent("EARLY", "data");
    EXPECT_TRUE(witness.WaitForMember("EARLY"));
}

TEST_F(OstelAppLibStart, AnUnknownClientIsARuntimeErrorAndALaterOneIsTaken) {
    EXPECT_EQ(ostelAppLibInit(static_cast<tOstelClientId>(18)), RC_RUNTIME_ERROR);
    EXPECT_THAT(RecordingLog::Texts(2),
                Each("[TOstelDataMapper] Can't find string for enum (tOstelClientId) value: 18"));
    EXPECT_EQ(ostelAppLibInit(OSTEL_KTA), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.Call("OSTEL_KTA", "IS_APP_ACTIVE", ""), 0);
    EXPECT_EQ(ostelAppLibTerm(), RC_SUCCESS);
}

std::vector<std::string> changes;

// What is told while the connection is still being made is not lost.
TEST(OstelAppLibAlone, ListensBeforeItConnects) {
    ostelAppLibSubscribe(
        nullptr, [](const char* name, const char*) { changes.emplace_back(name); }, nullptr);
    EXPECT_EQ(ostelAppLibInit(OSTEL_KTA), RC_RUNTIME_ERROR);
    TOstelApplication::GetInstance()->NotifyDataModelChangeObservers("A", "1");
    EXPECT_THAT(changes, ElementsAre("A"));
    ostelAppLibUnsubscribe();
    ostelAppLibTerm();
}

class OstelAppLibBadInput : public OstelAppLib {};

// A C application has nobody to catch it.
TEST_F(OstelAppLibBadInput, WhateverIsThrownBelowIsLoggedAndARuntimeError) {
    TFaultyIpc error(std::logic_error("faulty"));
    TFaultyIpc number(7);
    TFlatRequests requests;
    const std::pair<TOstelIpc*, const char*> cases[] = {{&error, "faulty"},
                                                        {&number, "Unknown exception"}};
    for (const auto& [ipc, text] : cases) {
        const TIpcInPlace inPlace(*ipc);
        for (const auto& [type, ask] : requests.OfTheApplicationObject()) {
            RecordingLog::Clear();
            EXPECT_EQ(ask(), RC_RUNTIME_ERROR) << type;
            EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(text)) << type;
            EXPECT_EQ(RecordingLog::LastFormat(2), "%s");
        }
        RecordingLog::Clear();
        ostelAppLibSendEvent("NAME", "data");
        EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(text));
    }
}

TEST_F(OstelAppLibBadInput, ATextThatIsNotUtf8IsSentAsNull) {
    tOstelAppLibParam param = {"\xc3(", "\xff"};
    ostelAppLibSetParam(&param, true);
    EXPECT_EQ(m_Dispatcher.LastText("SET_PARAM"), R"({"NAME":null,"VALUE":null,"COMMIT":true})");
    auto request = Named<tOstelAppLibLongParamRequest>("\xc3(");
    ostelAppLibGetLongParam(&request);
    EXPECT_EQ(m_Dispatcher.LastText("GET_LONG_PARAM"), R"({"NAME":null})");
    request.value = param.value;
    ostelAppLibSetLongParam(&request, false);
    EXPECT_EQ(m_Dispatcher.LastText("SET_LONG_PARAM"),
              R"({"NAME":null,"VALUE":null,"COMMIT":false})");
}

TEST_F(OstelAppLibBadInput, EveryArrayMayHaveNoElementOneAndAHundredThousand) {
    for (const std::uint32_t count : {0U, 1U, 100000U}) {
        auto object = Named<tOstelAppLibObjectRequest>("O.");
        ostelAppLibAllocateObjectRequest(&object, count);
        std::fill_n(object.params.params, count, tOstelAppLibParam{"#", "1"});
        const struct {
            const char* type;
            tOstelReturnCode code;
            const char* end;
        } cases[] = {
            {"GET_PARAM_ARRAY", ostelAppLibGetParamArray(&object.params), "]}"},
            {"SET_PARAM_ARRAY", ostelAppLibSetParamArray(&object.params, true),
             R"(],"COMMIT":true})"},
            {"GET_OBJECT", ostelAppLibGetObject(&object), R"(],"ROOT":"O."})"},
            {"SET_OBJECT", ostelAppLibSetObject(&object, true), R"(],"ROOT":"O.","COMMIT":true})"}};
        for (const auto& test : cases) {
            // That of a dispatcher which knows nothing.
            EXPECT_EQ(test.code, RC_FAILURE);
            const std::string text = m_Dispatcher.LastText(test.type);
            EXPECT_EQ(std::count(text.begin(), text.end(), '#'), count) << test.type;
            EXPECT_THAT(text, testing::EndsWith(test.end));
        }
        ostelAppLibReleaseObjectRequest(&object);
    }
}

TEST_F(OstelAppLibBadInput, InstancesAreAskedForAndNumberedAsTheReplySays) {
    std::uint32_t instance = 7;
    m_Dispatcher.Answer("ADD_OBJECT_INSTANCE", "{}");
    EXPECT_EQ(ostelAppLibAddObjectInstance("Device.T.", &instance), RC_SUCCESS);
    EXPECT_EQ(instance, 0U);
    EXPECT_EQ(m_Dispatcher.LastText("ADD_OBJECT_INSTANCE"), R"({"OBJ":"Device.T."})");
    auto ids = Named<tOstelAppLibObjectIdsRequest>("Device.T.");
    ostelAppLibAllocateObjectIdsRequest(&ids, 3);
    m_Dispatcher.Answer("GET_OBJECT_INSTANCES", "{}");
    EXPECT_EQ(ostelAppLibGetObjectIds(&ids), RC_SUCCESS);
    EXPECT_EQ(ids.count, 0U);
    EXPECT_EQ(m_Dispatcher.LastText("GET_OBJECT_INSTANCES"), R"({"OBJ":"Device.T."})");
    ostelAppLibReleaseObjectIdsRequest(&ids);
}

}  // namespace
