// The flat interface's requests: records in and out.
#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <numeric>
#include <thread>

#include "OstelAppLibTest.h"
#include "RawPeer.h"
#include "TOstelDataMapper.h"

extern "C" int RunFlatClient(void (*tellOfAChange)(), char* report, std::size_t size);

namespace {

using testing::ElementsAre;

TEST_F(OstelAppLib, SingleParameterFillsTheValueAndLeavesTheArrayAlone) {
    AnswerParams("GET_PARAM", {Param("Device.One", "1")});
    auto request = Named<tOstelAppLibParamRequest>("Device.One");
    std::memset(request.value, 'x', sizeof request.value);
    request.isArray = true;
    EXPECT_EQ(ostelAppLibGetParam(&request), RC_SUCCESS);
    EXPECT_STREQ(request.value, "1");
    // Nothing of what was there before is left behind the text.
    EXPECT_EQ(std::accumulate(request.value + 1, request.value + 256, 0), 0);
    EXPECT_TRUE(request.isArray);
    EXPECT_EQ(request.array.params, nullptr);
    EXPECT_EQ(m_Dispatcher.LastText("GET_PARAM"), R"({"NAME":"Device.One"})");
}

TEST_F(OstelAppLib, SeveralParametersFillTheArray) {
    AnswerParams("GET_PARAM", {Param("A", "1"), Param("B", "2"), Param("C", "3")});
    auto request = Named<tOstelAppLibParamRequest>("Device.");
    EXPECT_EQ(ostelAppLibGetParam(&request), RC_SUCCESS);
    EXPECT_TRUE(request.isArray);
    ASSERT_EQ(request.array.count, 3U);
    EXPECT_STREQ(request.value, "");
    EXPECT_STREQ(request.array.params[2].name, "C");
    EXPECT_STREQ(request.array.params[2].value, "3");
    AnswerParams("GET_PARAM", {});
    EXPECT_EQ(ostelAppLibGetParam(&request), RC_SUCCESS);
    EXPECT_TRUE(request.isArray);
    EXPECT_EQ(request.array.count, 0U);
    ostelAppLibReleaseParamRequest(&request);
    EXPECT_FALSE(request.isArray);
    EXPECT_EQ(request.array.params, nullptr);
    ostelAppLibReleaseParamRequest(&request);
}

TEST_F(OstelAppLib, ArraysGoOutAndComeBackResized) {
    tOstelAppLibParamArray array = {};
    ostelAppLibAllocateParamArray(&array, 2);
    ASSERT_EQ(array.count, 2U);
    std::memset(array.params, 0, 2 * sizeof *array.params);
    std::strcpy(array.params[0].name, "A");
    std::strcpy(array.params[1].name, "B");
    std::strcpy(array.params[1].value, "2");
    AnswerParams("GET_PARAM_ARRAY", {Param("A", "1")});
    m_Dispatcher.Answer("SET_PARAM_ARRAY", "{}");
    EXPECT_EQ(ostelAppLibSetParamArray(&array, true), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.LastText("SET_PARAM_ARRAY"),
              R"({"PARAMS":[{"NAME":"A","VALUE":""},{"NAME":"B","VALUE":"2"}],"COMMIT":true})");
    EXPECT_EQ(ostelAppLibGetParamArray(&array), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.LastText("GET_PARAM_ARRAY"),
              R"({"PARAMS":[{"NAME":"A"},{"NAME":"B"}]})");
    ASSERT_EQ(array.count, 1U);
    EXPECT_STREQ(array.params[0].value, "1");
    m_Dispatcher.Answer("GET_PARAM_ARRAY", "{}", RC_NOT_FOUND);
    EXPECT_EQ(ostelAppLibGetParamArray(&array), RC_NOT_FOUND);
    EXPECT_EQ(array.count, 1U);
    ostelAppLibReleaseParamArray(&array);
    ostelAppLibReleaseParamArray(&array);
    EXPECT_EQ(array.params, nullptr);
    EXPECT_EQ(array.count, 0U);
}

TEST_F(OstelAppLib, ObjectsInstancesAndIds) {
    auto object = Named<tOstelAppLibObjectRequest>("Device.O.");
    Fill(object.params, {"P"});
    AnswerParams("GET_OBJECT", {Param("P", "1"), Param("Q", "2")});
    m_Dispatcher.Answer("SET_OBJECT", "{}");
    EXPECT_EQ(ostelAppLibSetObject(&object, false), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.LastText("SET_OBJECT"),
              R"({"PARAMS":[{"NAME":"P","VALUE":""}],"ROOT":"Device.O.","COMMIT":false})");
    EXPECT_EQ(ostelAppLibGetObject(&object), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.LastText("GET_OBJECT"),
              R"({"PARAMS":[{"NAME":"P"}],"ROOT":"Device.O."})");
    EXPECT_EQ(object.params.count, 2U);
    ostelAppLibReleaseObjectRequest(&object);
    EXPECT_EQ(object.params.params, nullptr);

    std::uint32_t instance = 7;
    m_Dispatcher.Answer("ADD_OBJECT_INSTANCE", R"({"ID":12})");
    EXPECT_EQ(ostelAppLibAddObjectInstance("Device.T.", &instance), RC_SUCCESS);
    EXPECT_EQ(instance, 12U);
    m_Dispatcher.Answer("DELETE_OBJECT_INSTANCE", "{}");
    EXPECT_EQ(ostelAppLibDelObjectInstance("Device.T.12."), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.LastText("DELETE_OBJECT_INSTANCE"), R"({"OBJ":"Device.T.12."})");

    auto ids = Named<tOstelAppLibObjectIdsRequest>("Device.T.");
    m_Dispatcher.Answer("GET_OBJECT_INSTANCES", R"({"IDS":[3,5,8]})");
    EXPECT_EQ(ostelAppLibGetObjectIds(&ids), RC_SUCCESS);
    EXPECT_THAT(std::vector<int>(ids.ids, ids.ids + ids.count), ElementsAre(3, 5, 8));
    ostelAppLibReleaseObjectIdsRequest(&ids);
    ostelAppLibReleaseObjectIdsRequest(&ids);
    EXPECT_EQ(ids.ids, nullptr);
}

TEST_F(OstelAppLib, IndexMapsComeWithTheirPairs) {
    m_Dispatcher.Answer("GET_INDEX_MAP", R"({"DATA_MODELS":[{"NAME":"A","INDEX_MAP":[)"
                                         R"({"APP_INDEX":1,"PLATFORM_INDEX":3}]},{"NAME":"B"}]})");
    tOstelAppLibIndexMapRequest request = {};
    ASSERT_EQ(ostelAppLibGetIndexMapping(&request), RC_SUCCESS);
    ASSERT_EQ(request.count, 2U);
    const tOstelAppLibIndexMap& a =
        request.maps[std::strcmp(request.maps[0].name, "A") == 0 ? 0 : 1];
    ASSERT_EQ(a.count, 1U);
    EXPECT_EQ(a.pairs[0].appIndex, 1);
    EXPECT_EQ(a.pairs[0].platformIndex, 3);
    const auto* const maps = request.maps;
    ostelAppLibReleaseIndexMapRequest(&request);
    // The record keeps what it was: it is not for use before the next mapping.
    EXPECT_EQ(request.maps, maps);
    EXPECT_EQ(request.count, 2U);
}

// Released maps stay in the record, so that releasing them once more would be the end.
TEST_F(OstelAppLib, IndexMapsReadBeforeAreLeftToTheCaller) {
    m_Dispatcher.Answer("GET_INDEX_MAP", R"({"DATA_MODELS":[{"NAME":"A","INDEX_MAP":[{}]}]})");
    tOstelAppLibIndexMapRequest request = {};
    ASSERT_EQ(ostelAppLibGetIndexMapping(&request), RC_SUCCESS);
    tOstelAppLibIndexMapRequest kept = request;
    ASSERT_EQ(ostelAppLibGetIndexMapping(&request), RC_SUCCESS);
    EXPECT_NE(request.maps, kept.maps);
    EXPECT_STREQ(kept.maps[0].name, "A");
    ostelAppLibReleaseIndexMapRequest(&kept);
    ostelAppLibReleaseIndexMapRequest(&request);
    EXPECT_EQ(ostelAppLibGetIndexMapping(&request), RC_SUCCESS);
    ostelAppLibReleaseIndexMapRequest(&request);
}

TEST_F(OstelAppLib, EveryWriteSaysWhetherItCommits) {
    tOstelAppLibParam param = {"P", "1"};
    tOstelAppLibParamArray array = {&param, 1};
    auto object = Named<tOstelAppLibObjectRequest>("O.");
    object.params = array;
    auto longParam = Named<tOstelAppLibLongParamRequest>("L");
    longParam.value = param.value;
    for (const bool commit : {true, false}) {
        for (const char* type : {"SET_PARAM", "SET_PARAM_ARRAY", "SET_OBJECT", "SET_LONG_PARAM"}) {
            m_Dispatcher.Answer(type, "{}");
        }
        EXPECT_EQ(ostelAppLibSetParam(&param, commit), RC_SUCCESS);
        EXPECT_EQ(ostelAppLibSetParamArray(&array, commit), RC_SUCCESS);
        EXPECT_EQ(ostelAppLibSetObject(&object, commit), RC_SUCCESS);
        EXPECT_EQ(ostelAppLibSetLongParam(&longParam, commit), RC_SUCCESS);
        const std::string end = commit ? R"("COMMIT":true})" : R"("COMMIT":false})";
        EXPECT_EQ(m_Dispatcher.LastText("SET_PARAM"), R"({"NAME":"P","VALUE":"1",)" + end);
        EXPECT_EQ(m_Dispatcher.LastText("SET_PARAM_ARRAY"),
                  R"({"PARAMS":[{"NAME":"P","VALUE":"1"}],)" + end);
        EXPECT_EQ(m_Dispatcher.LastText("SET_OBJECT"),
                  R"({"PARAMS":[{"NAME":"P","VALUE":"1"}],"ROOT":"O.",)" + end);
        EXPECT_EQ(m_Dispatcher.LastText("SET_LONG_PARAM"), R"({"NAME":"L","VALUE":"1",)" + end);
    }
}

// The platform's code is put into the common terms here, and nowhere else.
TEST_F(OstelAppLib, CommitTellsTheMappedCode) {
    for (const int code : {0, 1, 3, 8, 9, -5}) {
        m_Dispatcher.Answer("COMMIT", "{}", code);
        EXPECT_EQ(ostelAppLibCommit(), TOstelDataMapper::MapRcPltToCmn(code)) << code;
        EXPECT_EQ(m_Dispatcher.LastText("COMMIT"), "{}");
    }
    m_Dispatcher.Answer("COMMIT", "{}", 8);
    EXPECT_EQ(ostelAppLibCommit(), RC_NOT_SUPPORTED);
}

TEST_F(OstelAppLib, EveryOtherRequestPassesTheCodeOnAndLeavesItsRecordAlone) {
    auto request = Named<tOstelAppLibParamRequest>("P");
    tOstelAppLibParamArray array = {};
    Fill(array, {"P"});
    auto object = Named<tOstelAppLibObjectRequest>("O.");
    Fill(object.params, {"P"});
    auto ids = Named<tOstelAppLibObjectIdsRequest>("O.");
    ostelAppLibAllocateObjectIdsRequest(&ids, 3);
    tOstelAppLibIndexMapRequest maps = {nullptr, 7};
    auto longParam = Named<tOstelAppLibLongParamRequest>("L");
    ostelAppLibAllocateLongParamRequest(&longParam, 0);
    std::uint32_t instance = 7;
    const auto* const arrayBefore = array.params;
    const auto* const objectBefore = object.params.params;
    const auto* const idsBefore = ids.ids;
    const std::string full =
        R"({"PARAMS":[{"NAME":"X"},{"NAME":"Y"}],"IDS":[1,2],"ID":9,"VALUE":"new",)"
        R"("DATA_MODELS":[{"NAME":"X"}]})";
    const std::vector<std::pair<const char*, std::function<tOstelReturnCode()>>> cases{
        {"GET_PARAM", [&] { return ostelAppLibGetParam(&request); }},
        {"SET_PARAM", [&] { return ostelAppLibSetParam(array.params, true); }},
        {"GET_PARAM_ARRAY", [&] { return ostelAppLibGetParamArray(&array); }},
        {"SET_PARAM_ARRAY", [&] { return ostelAppLibSetParamArray(&array, true); }},
        {"GET_OBJECT", [&] { return ostelAppLibGetObject(&object); }},
        {"SET_OBJECT", [&] { return ostelAppLibSetObject(&object, true); }},
        {"ADD_OBJECT_INSTANCE", [&] { return ostelAppLibAddObjectInstance("O.", &instance); }},
        {"DELETE_OBJECT_INSTANCE", [&] { return ostelAppLibDelObjectInstance("O.1."); }},
        {"GET_OBJECT_INSTANCES", [&] { return ostelAppLibGetObjectIds(&ids); }},
        {"GET_INDEX_MAP", [&] { return ostelAppLibGetIndexMapping(&maps); }},
        {"GET_LONG_PARAM", [&] { return ostelAppLibGetLongParam(&longParam); }},
        {"SET_LONG_PARAM", [&] { return ostelAppLibSetLongParam(&longParam, true); }}};
    for (const auto& [type, ask] : cases) {
        for (const int code : {1, 7, -1, 1000}) {
            m_Dispatcher.Answer(type, full, code);
            EXPECT_EQ(ask(), code) << type;
            // At once: an array that is made anew twice may stand where it stood.
            EXPECT_EQ(array.params, arrayBefore);
            EXPECT_EQ(object.params.params, objectBefore);
            EXPECT_EQ(ids.ids, idsBefore);
        }
    }
    EXPECT_FALSE(request.isArray);
    EXPECT_EQ(request.array.params, nullptr);
    EXPECT_EQ(array.count, 1U);
    EXPECT_EQ(object.params.count, 1U);
    EXPECT_EQ(ids.count, 3U);
    EXPECT_EQ(maps.count, 7U);
    EXPECT_EQ(longParam.size, 0U);
    EXPECT_EQ(instance, 7U);
    ostelAppLibReleaseParamArray(&array);
    ostelAppLibReleaseObjectRequest(&object);
    ostelAppLibReleaseObjectIdsRequest(&ids);
    ostelAppLibReleaseLongParamRequest(&longParam);
}

TEST_F(OstelAppLib, ArraysMayBeEmptyAndLargeButNotEndless) {
    m_Dispatcher.Answer("SET_PARAM_ARRAY", "{}");
    tOstelAppLibParamArray array = {};
    ostelAppLibAllocateParamArray(&array, 0);
    EXPECT_EQ(ostelAppLibSetParamArray(&array, false), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.LastText("SET_PARAM_ARRAY"), R"({"PARAMS":[],"COMMIT":false})");
    ostelAppLibAllocateParamArray(&array, 100000);
    std::fill_n(array.params, array.count, tOstelAppLibParam{"N", "V"});
    EXPECT_EQ(ostelAppLibSetParamArray(&array, false), RC_SUCCESS);
    const std::string text = m_Dispatcher.LastText("SET_PARAM_ARRAY");
    EXPECT_EQ(std::count(text.begin(), text.end(), 'V'), 200000);

    const std::size_t before = m_Dispatcher.Requests().size();
    auto object = Named<tOstelAppLibObjectRequest>("O.");
    object.params = {array.params, 4294967295U};
    EXPECT_EQ(ostelAppLibGetParamArray(&object.params), RC_RUNTIME_ERROR);
    EXPECT_EQ(ostelAppLibSetParamArray(&object.params, true), RC_RUNTIME_ERROR);
    EXPECT_EQ(ostelAppLibGetObject(&object), RC_RUNTIME_ERROR);
    EXPECT_EQ(ostelAppLibSetObject(&object, true), RC_RUNTIME_ERROR);
    EXPECT_EQ(RecordingLog::Count(2, "No message holds 4294967295 parameters"), 4);
    EXPECT_EQ(m_Dispatcher.Requests().size(), before);
    EXPECT_EQ(object.params.params, array.params);
    ostelAppLibReleaseParamArray(&array);
}

TEST_F(OstelAppLib, SendsEventsToEveryApplication) {
    const RawPeer witness;
    ostelAppLibSendEvent("APP_EVENT_TYPE_SOFTWARE_UPDATER_DONE", "data");
    ASSERT_TRUE(witness.WaitForMember("APP_EVENT_TYPE_SOFTWARE_UPDATER_DONE"));
    const RawPeer::TMessage event = witness.Received().back();
    EXPECT_EQ(event.type, DBUS_MESSAGE_TYPE_SIGNAL);
    EXPECT_EQ(event.text, "data");
}

TEST_F(OstelAppLib, AnEventWithoutNameOrDataIsLoggedAndNotSent) {
    const RawPeer witness;
    ostelAppLibSendEvent(nullptr, "data");
    ostelAppLibSendEvent("NULL_DATA", nullptr);
    const std::string line = "ostelAppLibSendEvent: the event name or data is NULL";
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(line, line));
    ostelAppLibSendEvent("AFTER", "");
    ASSERT_TRUE(witness.WaitForMember("AFTER"));
    for (const RawPeer::TMessage& message : witness.Received()) {
        EXPECT_NE(message.member, "NULL_DATA");
    }
}

TEST_F(OstelAppLib, RequestsWorkAfterTheTerm) {
    EXPECT_EQ(ostelAppLibTerm(), RC_SUCCESS);
    EXPECT_EQ(ostelAppLibTerm(), RC_SUCCESS);
    AnswerParams("GET_PARAM", {Param("Device.One", "1")});
    auto request = Named<tOstelAppLibParamRequest>("Device.One");
    EXPECT_EQ(ostelAppLibGetParam(&request), RC_SUCCESS);
    EXPECT_STREQ(request.value, "1");
    EXPECT_EQ(ostelAppLibInit(OSTEL_KTA), RC_SUCCESS);
}

TEST_F(OstelAppLib, SetsTheLogLevel) {
    ostelAppLibSetLogLevelError();
    ostelAppLibSetLogLevelNotice();
    ostelAppLibSetLogLevelDebug();
    EXPECT_THAT(RecordingLog::Calls(),
                ElementsAre("setLogLevel 2", "setLogLevel 4", "setLogLevel 6"));
}

TEST_F(OstelAppLib, WorksFromC) {
    AnswerParams("GET_PARAM", {Param("Device.One", "1")});
    m_Dispatcher.Answer("SET_PARAM", "{}");
    const auto tellOfAChange = [] {
        TOstelApplication::GetInstance()->NotifyDataModelChangeObservers("Device.Two", "2");
    };
    char report[600] = "";
    EXPECT_EQ(RunFlatClient(tellOfAChange, report, sizeof report), 0);
    EXPECT_STREQ(report, "1, Device.Two=2");
}

// Each of them in its own way.
TEST_F(OstelAppLib, MayBeUsedByEightThreadsAtOnce) {
    AnswerParams("GET_PARAM", {Param("Device.One", "1")});
    AnswerParams("GET_PARAM_ARRAY", {Param("Device.One", "1"), Param("Device.Two", "2")});
    m_Dispatcher.Answer("SET_PARAM", "{}");
    m_Dispatcher.Answer("GET_LONG_PARAM", R"({"VALUE":"long"})");
    m_Dispatcher.Answer("GET_OBJECT_INSTANCES", R"({"IDS":[1,2]})");
    m_Dispatcher.Answer("GET_INDEX_MAP", R"({"DATA_MODELS":[{"NAME":"A","INDEX_MAP":[{}]}]})");
    const std::function<bool()> uses[] = {
        [] {
            auto request = Named<tOstelAppLibParamRequest>("Device.One");
            return ostelAppLibGetParam(&request) == RC_SUCCESS && request.value[0] == '1';
        },
        [] {
            tOstelAppLibParamArray array = {};
            Fill(array, {"Device.*"});
            const bool done = ostelAppLibGetParamArray(&array) == RC_SUCCESS && array.count == 2;
            ostelAppLibReleaseParamArray(&array);
            return done;
        },
        [] {
            const tOstelAppLibParam param = {"Device.One", "1"};
            return ostelAppLibSetParam(&param, true) == RC_SUCCESS;
        },
        [] {
            auto request = Named<tOstelAppLibLongParamRequest>("Device.Long");
            const bool done = ostelAppLibGetLongParam(&request) == RC_SUCCESS && request.size == 5;
            ostelAppLibReleaseLongParamRequest(&request);
            return done;
        },
        [] {
            auto request = Named<tOstelAppLibObjectIdsRequest>("Device.T.");
            const bool done = ostelAppLibGetObjectIds(&request) == RC_SUCCESS && request.count == 2;
            ostelAppLibReleaseObjectIdsRequest(&request);
            return done;
        },
        [] {
            tOstelAppLibIndexMapRequest request = {};
            const bool done = ostelAppLibGetIndexMapping(&request) == RC_SUCCESS;
            ostelAppLibReleaseIndexMapRequest(&request);
            return done;
        },
        [] {
            ostelAppLibSubscribe(
                nullptr, [](const char*, const char*) {}, nullptr);
            ostelAppLibSendEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
            ostelAppLibUnsubscribe();
            return true;
        },
        [] {
            const bool done =
                ostelAppLibTerm() == RC_SUCCESS && ostelAppLibInit(OSTEL_KTA) == RC_SUCCESS;
            TOstelApplication::GetInstance()->NotifyDataModelChangeObservers("Device.One", "1");
            return done;
        }};
    ASSERT_EQ(std::size(uses), 8U);
    ASSERT_EQ(ostelAppLibInit(OSTEL_KTA), RC_SUCCESS);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (const auto& use : uses) {
        threads.emplace_back([&] {
            for (int call = 0; call < 50; ++call) {
                failures += use() ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    ostelAppLibTerm();
}

TEST(OstelAppLibAlone, FailsWithCodesBeforeInit) {
    auto request = std::make_unique<tOstelAppLibParamRequest>();
    EXPECT_EQ(ostelAppLibGetParam(request.get()), RC_FAILURE);
    EXPECT_EQ(ostelAppLibCommit(), RC_FAILURE);
    EXPECT_EQ(ostelAppLibInit(OSTEL_KTA), RC_RUNTIME_ERROR);
    EXPECT_EQ(ostelAppLibTerm(), RC_SUCCESS);
}

}  // namespace
