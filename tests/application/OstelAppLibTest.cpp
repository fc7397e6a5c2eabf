// The flat interface: records in and out, null everywhere, and the notifications.
#include "ostelAppLib.h"

#include <cstring>
#include <memory>
#include <numeric>
#include <thread>

#include "ApplicationTest.h"
#include "WaitUntil.h"

extern "C" int RunFlatClient(char* report, std::size_t size);

namespace {

using testing::ElementsAre;

static_assert(sizeof(tOstelAppLibParam) == 512, "name and value");
static_assert(offsetof(tOstelAppLibParam, value) == 256, "behind the name");
static_assert(offsetof(tOstelAppLibParamRequest, array) == 512, "behind name and value");
#ifdef __i386__
static_assert(sizeof(tOstelAppLibParamArray) == 8, "pointer and count");
static_assert(offsetof(tOstelAppLibParamRequest, isArray) == 520, "behind the array");
static_assert(offsetof(tOstelAppLibParamRequest, remote) == 524, "aligned to 4");
static_assert(sizeof(tOstelAppLibParamRequest) == 780, "up to the remote unit");
static_assert(offsetof(tOstelAppLibLongParamRequest, remote) == 264, "behind value and size");
static_assert(sizeof(tOstelAppLibObjectRequest) == 264, "name and array");
static_assert(sizeof(tOstelAppLibObjectIdsRequest) == 264, "name, ids and count");
static_assert(sizeof(tOstelAppLibIndexMap) == 264, "name, pairs and count");
static_assert(sizeof(tOstelAppLibIndexMapRequest) == 8, "maps and count");
#else
static_assert(offsetof(tOstelAppLibParamRequest, isArray) == 528, "behind the array");
static_assert(offsetof(tOstelAppLibParamRequest, remote) == 532, "aligned to 4");
static_assert(offsetof(tOstelAppLibLongParamRequest, remote) == 268, "behind value and size");
#endif
static_assert(sizeof(tOstelAppLibIndexPair) == 8, "two 32-bit numbers");

class OstelAppLib : public ApplicationTest {
protected:
    template <typename T>
    static T Named(const std::string& name) {
        T request = {};
        name.copy(request.name, sizeof request.name);
        return request;
    }

    static std::string Param(const std::string& name, const std::string& value) {
        return R"({"NAME":")" + name + R"(","VALUE":")" + value + R"("})";
    }

    void AnswerParams(const std::string& type, const std::vector<std::string>& params) {
        std::string text;
        for (const std::string& param : params) {
            text += (text.empty() ? "" : ",") + param;
        }
        m_Dispatcher.Answer(type, R"({"PARAMS":[)" + text + "]}");
    }
};

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

TEST_F(OstelAppLib, TextsAreCutAt255Characters) {
    const std::string text(10000, 'x');
    AnswerParams("GET_PARAM", {Param("A", text)});
    auto request = Named<tOstelAppLibParamRequest>(text);
    EXPECT_EQ(ostelAppLibGetParam(&request), RC_SUCCESS);
    EXPECT_EQ(std::strlen(request.value), 255U);
    // The field of the name was full to its last byte.
    EXPECT_EQ(m_Dispatcher.LastText("GET_PARAM"), R"({"NAME":")" + std::string(256, 'x') + R"("})");
    AnswerParams("GET_PARAM", {Param(text, text), Param("B", "2")});
    EXPECT_EQ(ostelAppLibGetParam(&request), RC_SUCCESS);
    EXPECT_EQ(std::strlen(request.array.params[0].name), 255U);
    EXPECT_EQ(std::strlen(request.array.params[0].value), 255U);
    ostelAppLibReleaseParamRequest(&request);
}

TEST_F(OstelAppLib, NullRecordsAreInvalidArguments) {
    std::uint32_t instance = 0;
    tOstelAppLibParamArray array = {};
    tOstelAppLibObjectRequest object = {};
    for (const tOstelReturnCode code :
         {ostelAppLibGetParam(nullptr), ostelAppLibSetParam(nullptr, true),
          ostelAppLibGetParamArray(nullptr), ostelAppLibGetParamArray(&array),
          ostelAppLibSetParamArray(nullptr, true), ostelAppLibSetParamArray(&array, true),
          ostelAppLibGetObject(nullptr), ostelAppLibGetObject(&object),
          ostelAppLibSetObject(nullptr, true), ostelAppLibSetObject(&object, true),
          ostelAppLibAddObjectInstance(nullptr, &instance),
          ostelAppLibAddObjectInstance("Device.", nullptr), ostelAppLibDelObjectInstance(nullptr),
          ostelAppLibGetObjectIds(nullptr), ostelAppLibGetIndexMapping(nullptr),
          ostelAppLibGetLongParam(nullptr), ostelAppLibSetLongParam(nullptr, true)}) {
        EXPECT_EQ(code, RC_INVALID_ARGUMENT);
    }
    ostelAppLibSendEvent(nullptr, "data");
    ostelAppLibSendEvent("E", nullptr);
    EXPECT_EQ(RecordingLog::Texts(2).size(), 2U);
    EXPECT_TRUE(m_Dispatcher.Requests().empty());
    ostelAppLibAllocateParamArray(nullptr, 1);
    ostelAppLibReleaseParamArray(nullptr);
    ostelAppLibAllocateParamArrayRequest(nullptr, 1);
    ostelAppLibReleaseParamArrayRequest(nullptr);
    ostelAppLibReleaseParamRequest(nullptr);
    ostelAppLibAllocateLongParamRequest(nullptr, 1);
    ostelAppLibReleaseLongParamRequest(nullptr);
    ostelAppLibReleaseLongParamRemote(nullptr);
    ostelAppLibAllocateObjectRequest(nullptr, 1);
    ostelAppLibReleaseObjectRequest(nullptr);
    ostelAppLibAllocateObjectIdsRequest(nullptr, 1);
    ostelAppLibReleaseObjectIdsRequest(nullptr);
    ostelAppLibReleaseIndexMapRequest(nullptr);
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
    ostelAppLibAllocateObjectRequest(&object, 1);
    std::memset(object.params.params, 0, sizeof *object.params.params);
    std::strcpy(object.params.params[0].name, "P");
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

TEST_F(OstelAppLib, LongValuesHaveAnyLength) {
    const std::string value(8 * 1024 * 1024, 'v');
    m_Dispatcher.Answer("GET_LONG_PARAM", R"({"VALUE":")" + value + R"("})");
    m_Dispatcher.Answer("SET_LONG_PARAM", "{}");
    auto request = Named<tOstelAppLibLongParamRequest>("Device.Long");
    ASSERT_EQ(ostelAppLibGetLongParam(&request), RC_SUCCESS);
    EXPECT_EQ(request.size, value.size() + 1);
    EXPECT_EQ(request.value, value);
    EXPECT_EQ(ostelAppLibSetLongParam(&request, true), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.LastText("SET_LONG_PARAM"),
              R"({"NAME":"Device.Long","VALUE":")" + value + R"(","COMMIT":true})");
    ostelAppLibReleaseLongParamRequest(&request);
    EXPECT_EQ(request.value, nullptr);
    EXPECT_EQ(request.size, 0U);
    EXPECT_EQ(ostelAppLibSetLongParam(&request, true), RC_INVALID_ARGUMENT);
    m_Dispatcher.Answer("GET_LONG_PARAM", "{}");
    EXPECT_EQ(ostelAppLibGetLongParam(&request), RC_SUCCESS);
    EXPECT_EQ(request.size, 1U);
    ostelAppLibReleaseLongParamRemote(&request);
    m_Dispatcher.Answer("GET_LONG_PARAM", "nonsense");
    EXPECT_EQ(ostelAppLibGetLongParam(&request), RC_RUNTIME_ERROR);
    m_Dispatcher.Answer("GET_LONG_PARAM", "", RC_INVALID_PARAM_NAME);
    EXPECT_EQ(ostelAppLibGetLongParam(&request), RC_INVALID_PARAM_NAME);
}

TEST_F(OstelAppLib, ExceptionsBecomeRuntimeErrors) {
    auto request = Named<tOstelAppLibLongParamRequest>("Device.Long");
    char notUtf8[] = "\xFF";
    request.value = notUtf8;
    request.size = sizeof notUtf8;
    m_Bus.Kill();
    ASSERT_TRUE(
        WaitUntil([&] { return ostelAppLibSetLongParam(&request, true) == RC_RUNTIME_ERROR; }));
    EXPECT_FALSE(RecordingLog::Texts(2).empty());
}

using tCallbacks = std::vector<std::string>;
tCallbacks callbacks;

void OnDevice(tOstelAppClientDeviceState state, const char* mac, const char* host) {
    callbacks.push_back(std::to_string(state) + " " + mac + " " + host);
}
void OnChange(const char* name, const char* value) {
    callbacks.push_back(std::string(name) + "=" + value);
}
void OnUpdate(const char* url) {
    callbacks.push_back(std::string("url:") + url);
}
void UnsubscribeItself(const char*, const char*) {
    callbacks.emplace_back("once");
    ostelAppLibUnsubscribe();
}

TEST_F(OstelAppLib, NotificationsReachTheirCallbacks) {
    EXPECT_EQ(ostelAppLibInit(OSTEL_KTA), RC_SUCCESS);
    ostelAppLibSubscribe(OnDevice, OnChange, OnUpdate);
    m_App.OnEvent("EVENT_TYPE_CLIENT_RECONNECTED", R"({"MAC_ADDRESS":"m","HOST_NAME":"h"})");
    m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", R"({"DATA_MODEL_NAME":"A","DATA_MODEL_VALUE":"1"})");
    m_App.OnEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":"http://u"})");
    // The URL itself is read as a document once more, and only a document has an address in it.
    m_App.OnEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":"{\"URL\":\"inner\"}"})");
    EXPECT_THAT(callbacks, ElementsAre("1 m h", "A=1", "url:", "url:inner"));
    m_App.NotifyCpeClientStateObservers(
        static_cast<IOstelCpeClientStateObserver::TOstelCpeClientState>(5), "m", "h");
    m_App.NotifyObservers("OTHER", "{}");
    ostelAppLibUnsubscribe();
    m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
    ostelAppLibSubscribe(nullptr, nullptr, nullptr);
    m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
    ostelAppLibSubscribe(nullptr, OnChange, nullptr);
    EXPECT_EQ(ostelAppLibTerm(), RC_SUCCESS);
    m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
    EXPECT_EQ(callbacks.size(), 4U);
}

TEST_F(OstelAppLib, ACallbackMayUnsubscribeWhileEventsArrive) {
    ostelAppLibInit(OSTEL_KTA);
    ostelAppLibSubscribe(nullptr, UnsubscribeItself, nullptr);
    std::thread other([&] {
        for (int i = 0; i < 100; ++i) {
            m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
        }
    });
    for (int i = 0; i < 100; ++i) {
        m_App.OnEvent("EVENT_TYPE_PARAM_CHANGED", "{}");
    }
    other.join();
    EXPECT_THAT(callbacks, ElementsAre("once"));
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
    char report[600] = "";
    EXPECT_EQ(RunFlatClient(report, sizeof report), 0);
    EXPECT_STREQ(report, "1");
}

TEST_F(OstelAppLib, MayBeUsedByEightThreadsAtOnce) {
    AnswerParams("GET_PARAM", {Param("Device.One", "1")});
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int call = 0; call < 50; ++call) {
                auto request = Named<tOstelAppLibParamRequest>("Device.One");
                if (ostelAppLibGetParam(&request) != RC_SUCCESS || request.value[0] != '1') {
                    ++failures;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
}

TEST(OstelAppLibAlone, FailsWithCodesBeforeInit) {
    auto request = std::make_unique<tOstelAppLibParamRequest>();
    EXPECT_EQ(ostelAppLibGetParam(request.get()), RC_FAILURE);
    EXPECT_EQ(ostelAppLibCommit(), RC_FAILURE);
    EXPECT_EQ(ostelAppLibInit(OSTEL_KTA), RC_RUNTIME_ERROR);
    EXPECT_EQ(ostelAppLibTerm(), RC_SUCCESS);
}

TEST(OstelAppLibAlone, WhatCannotBeAllocatedLeavesTheRecordEmpty) {
    tOstelAppLibParamArray array = {};
    ostelAppLibAllocateParamArray(&array, 3);
    ostelAppLibAllocateParamArray(&array, 0);
    EXPECT_EQ(array.count, 0U);
    ostelAppLibAllocateParamArray(&array, 100000);
    EXPECT_EQ(array.count, 100000U);
    ostelAppLibReleaseParamArray(&array);
#ifdef __i386__
    ostelAppLibAllocateParamArray(&array, 4294967295U);
    EXPECT_EQ(array.params, nullptr);
    EXPECT_EQ(array.count, 0U);
#endif
}

TEST(PatternMatch, LetsTheFirstStarStandForOneSegment) {
    int index = -1;
    EXPECT_TRUE(
        patternMatch("Device.IP.Interface.*.Enable", "Device.IP.Interface.3.Enable", &index));
    EXPECT_EQ(index, 3);
    EXPECT_FALSE(
        patternMatch("Device.IP.Interface.*.Enable", "Device.IP.Interface.3.Status", &index));
    EXPECT_FALSE(patternMatch("A.*.B", "A.1.2.B", nullptr));
    // A later star is an ordinary character.
    EXPECT_TRUE(patternMatch("A.*.B.*.C", "A.1.B.*.C", &index));
    EXPECT_FALSE(patternMatch("A.*.B.*.C", "A.1.B.2.C", &index));
    EXPECT_TRUE(patternMatch("*.B", "7.B", &index));
    EXPECT_EQ(index, 7);
}

TEST(PatternMatch, ReadsTheSegmentAsStoiDoes) {
    int index = 0;
    EXPECT_TRUE(patternMatch("A.*.B", "A. -12x.B", &index));
    EXPECT_EQ(index, -12);
    EXPECT_TRUE(patternMatch("A.*.B", "A..B", nullptr));
    EXPECT_TRUE(patternMatch("A.*.B", "A.x.B", nullptr));
    try {
        patternMatch("A.*.B", "A..B", &index);
        FAIL() << "nothing was thrown";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "stoi");
    }
    EXPECT_THROW(patternMatch("A.*.B", "A.99999999999.B", &index), std::out_of_range);
}

TEST(PatternMatch, FailsWithoutAStarOrWithoutAPointBehindIt) {
    EXPECT_THROW(patternMatch("A.1.B", "A.1.B", nullptr), std::out_of_range);
    EXPECT_THROW(patternMatch("A.*.B", "A.1", nullptr), std::out_of_range);
    EXPECT_THROW(patternMatch("A.*.B", "A", nullptr), std::out_of_range);
    EXPECT_THROW(patternMatch("A.*", "A.1", nullptr), std::out_of_range);
    EXPECT_THROW(patternMatch("", "", nullptr), std::out_of_range);
}

TEST(PatternMatch, CollectsIndicesWithoutClearing) {
    std::vector<int> indices = {9};
    getWildcardIndices("A.*.B", {"A.1.B", "A.2.C", "A.7.B"}, indices);
    EXPECT_THAT(indices, ElementsAre(9, 1, 7));
    EXPECT_THROW(getWildcardIndices("A.*.B", {"A.1.B", "no point"}, indices), std::out_of_range);
}

}  // namespace
