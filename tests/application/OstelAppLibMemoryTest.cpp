// The flat interface without memory: whatever allocation fails, a request is done or its record is
// as it was.
#include <jansson.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <set>

#include "Allocations.h"
#include "IOstelDataModelChangeObserverRemote.h"
#include "OstelAppLibTest.h"
#include "TOstelJsonObject.h"
#include "TlsPeer.h"

using testing::AnyOf;

// Arrays, too, under the sanitizers, which have allocations of their own for them.
void* operator new[](std::size_t size) {
    return operator new(size);
}

void operator delete[](void* memory) noexcept {
    operator delete(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    operator delete(memory);
}

namespace {

// Asks again and again, with one allocation more before that which fails, until none does.
template <typename Ask, typename AsItWas>
void RunOutOfMemory(Ask ask, AsItWas asItWas) {
    int failures = 0;
    tOstelReturnCode code = RC_RUNTIME_ERROR;
    for (std::size_t count = 0; code != RC_SUCCESS; ++count) {
        ASSERT_LT(count, 10000U);
        Allocations::FailOneAfter(count);
        code = ask();
        Allocations::GoOn();
        if (code != RC_SUCCESS) {
            ++failures;
            ASSERT_EQ(code, RC_RUNTIME_ERROR) << count;
            ASSERT_TRUE(asItWas()) << count;
        }
    }
    EXPECT_GT(failures, 0);
    EXPECT_FALSE(asItWas());
}

// An allocation that fails, in a record that has something in it.
template <typename Record, typename Array, typename Count>
void ExpectEmptied(Array Record::*array, Count Record::*count,
                   void (*allocate)(Record*, std::uint32_t)) {
    Record record = {};
    allocate(&record, 3);
    ASSERT_NE(record.*array, nullptr);
    Allocations::FailOneAfter(0);
    allocate(&record, 2);
    Allocations::GoOn();
    EXPECT_EQ(record.*array, nullptr);
    EXPECT_EQ(record.*count, 0U);
}

TEST(OstelAppLibAllocations, LeaveTheRecordEmptyAndALineInTheLogWhenTheyFail) {
    ExpectEmptied(&tOstelAppLibParamArray::params, &tOstelAppLibParamArray::count,
                  ostelAppLibAllocateParamArray);
    ExpectEmptied(&tOstelAppLibParamArray::params, &tOstelAppLibParamArray::count,
                  ostelAppLibAllocateParamArrayRequest);
    ExpectEmptied(&tOstelAppLibLongParamRequest::value, &tOstelAppLibLongParamRequest::size,
                  ostelAppLibAllocateLongParamRequest);
    ExpectEmptied(&tOstelAppLibObjectIdsRequest::ids, &tOstelAppLibObjectIdsRequest::count,
                  ostelAppLibAllocateObjectIdsRequest);
    tOstelAppLibObjectRequest object = {};
    ostelAppLibAllocateObjectRequest(&object, 3);
    Allocations::FailOneAfter(0);
    ostelAppLibAllocateObjectRequest(&object, 2);
    Allocations::GoOn();
    EXPECT_EQ(object.params.params, nullptr);
    EXPECT_EQ(object.params.count, 0U);
    EXPECT_EQ(RecordingLog::Count(2, std::bad_alloc().what()), 5);
    EXPECT_EQ(RecordingLog::LastFormat(2), "%s");
}

class OstelAppLibMemory : public OstelAppLib {};

TEST_F(OstelAppLibMemory, AParameterRequestIsKept) {
    AnswerParams("GET_PARAM", {Param("A", "1"), Param("B", "2")});
    auto request = Named<tOstelAppLibParamRequest>("Device.");
    Fill(request.array, {"before"});
    const tOstelAppLibParamRequest before = request;
    RunOutOfMemory([&] { return ostelAppLibGetParam(&request); },
                   [&] {
                       return !request.isArray && request.array.params == before.array.params &&
                              request.array.count == 1 &&
                              std::strcmp(request.array.params[0].name, "before") == 0;
                   });
    EXPECT_EQ(request.array.count, 2U);
    ostelAppLibReleaseParamRequest(&request);
}

TEST_F(OstelAppLibMemory, AnArrayAndAnObjectAreKept) {
    AnswerParams("GET_PARAM_ARRAY", {Param("A", "1"), Param("B", "2")});
    AnswerParams("GET_OBJECT", {Param("A", "1"), Param("B", "2")});
    auto object = Named<tOstelAppLibObjectRequest>("Device.");
    Fill(object.params, {"before"});
    const auto asItWas = [&] {
        return object.params.count == 1 && std::strcmp(object.params.params[0].name, "before") == 0;
    };
    RunOutOfMemory([&] { return ostelAppLibGetObject(&object); }, asItWas);
    Fill(object.params, {"before"});
    RunOutOfMemory([&] { return ostelAppLibGetParamArray(&object.params); }, asItWas);
    ostelAppLibReleaseObjectRequest(&object);
}

TEST_F(OstelAppLibMemory, IdsAreKept) {
    m_Dispatcher.Answer("GET_OBJECT_INSTANCES", R"({"IDS":[3,5,8]})");
    auto request = Named<tOstelAppLibObjectIdsRequest>("Device.");
    ostelAppLibAllocateObjectIdsRequest(&request, 1);
    request.ids[0] = 7;
    RunOutOfMemory([&] { return ostelAppLibGetObjectIds(&request); },
                   [&] { return request.count == 1 && request.ids[0] == 7; });
    ostelAppLibReleaseObjectIdsRequest(&request);
}

// Nor is anything of a half-made mapping lost.
TEST_F(OstelAppLibMemory, IndexMapsAreKept) {
    m_Dispatcher.Answer("GET_INDEX_MAP",
                        R"({"DATA_MODELS":[{"NAME":"A","INDEX_MAP":[{"APP_INDEX":1}]},)"
                        R"({"NAME":"B","INDEX_MAP":[{"APP_INDEX":2}]}]})");
    tOstelAppLibIndexMapRequest request = {nullptr, 7};
    RunOutOfMemory([&] { return ostelAppLibGetIndexMapping(&request); },
                   [&] { return request.maps == nullptr && request.count == 7; });
    ostelAppLibReleaseIndexMapRequest(&request);
}

TEST_F(OstelAppLibMemory, LongValuesAreKept) {
    m_Dispatcher.Answer("GET_LONG_PARAM", R"({"VALUE":"a text that is no short string"})");
    auto request = Named<tOstelAppLibLongParamRequest>("Device.Long");
    ostelAppLibAllocateLongParamRequest(&request, 3);
    char* const before = request.value;
    RunOutOfMemory([&] { return ostelAppLibGetLongParam(&request); },
                   [&] { return request.value == before && request.size == 3; });
    delete[] before;
    ostelAppLibReleaseLongParamRequest(&request);
}

// The JSON library's memory: the calling thread's allocation after the next `remaining` fails.
thread_local std::size_t remaining = 0;
thread_local bool isScarce = false;

void* AllocateJson(std::size_t size) {
    if (isScarce && remaining-- == 0) {
        isScarce = false;
        return nullptr;
    }
    return std::malloc(size);
}

class TScarceJson {
public:
    explicit TScarceJson(std::size_t count) {
        remaining = count;
        isScarce = true;
        json_set_alloc_funcs(&AllocateJson, &std::free);
    }
    TScarceJson(const TScarceJson&) = delete;
    TScarceJson& operator=(const TScarceJson&) = delete;
    ~TScarceJson() {
        isScarce = false;
        json_set_alloc_funcs(&std::malloc, &std::free);
    }

    static bool HasFailed() { return !isScarce; }
};

struct TRequest {
    std::string type;
    std::string whole;
    std::function<tOstelReturnCode()> ask;
};

// With one allocation more each time before that which fails, until none does.
void RunOutOfJson(const TRequest& request, tOstelReturnCode failure) {
    std::size_t count = 0;
    for (bool hasFailed = true; hasFailed; ++count) {
        ASSERT_LT(count, 1000U);
        const TScarceJson scarce(count);
        tOstelReturnCode code = failure;
        try {
            code = request.ask();
        } catch (const std::bad_alloc&) {
            // What the flat interface returns the application object throws.
            code = RC_RUNTIME_ERROR;
        }
        hasFailed = TScarceJson::HasFailed();
        EXPECT_THAT(code, AnyOf(RC_SUCCESS, RC_RUNTIME_ERROR, failure))
            << request.type << " " << count;
    }
    EXPECT_GT(count, 4U) << request.type;
}

// A dispatcher grants what is left of a request that lost a part, and nobody would know.
TEST_F(OstelAppLibMemory, ARequestGoesOutWholeOrNotAtAll) {
    const TParams params = {{"A", "1"}, {"B", "2"}};
    const std::string names = R"({"PARAMS":[{"NAME":"A"},{"NAME":"B"}])";
    const std::string values = R"({"PARAMS":[{"NAME":"A","VALUE":"1"},{"NAME":"B","VALUE":"2"}])";
    TParams read;
    TOstelJsonObject result;
    std::vector<int> ids;
    std::vector<std::string> tree;
    std::unordered_map<std::string, std::vector<std::pair<int, int>>> maps;
    int id = 0;
    char text[] = "text";
    auto value = Named<tOstelAppLibLongParamRequest>("A");
    const TRequest requests[] = {
        {"COMMIT", "{}", [&] { return m_App.Commit(); }},
        {"GET_PARAM", R"({"NAME":"A"})", [&] { return m_App.GetParam("A", result); }},
        {"SET_PARAM", R"({"NAME":"A","VALUE":"1","COMMIT":true})",
         [&] { return m_App.SetParam("A", "1", true); }},
        {"GET_PARAM_ARRAY", R"({"PARAMS":[{"NAME":"\"A"}]})",
         [&] {
             return m_App.GetParamArray(read = {{"\"A", ""}});
         }},
        {"SET_PARAM_ARRAY", values + R"(,"COMMIT":true})",
         [&] { return m_App.SetParamArray(params, true); }},
        {"GET_OBJECT", names + R"(,"ROOT":"O."})",
         [&] { return m_App.GetObject("O.", read = params); }},
        {"SET_OBJECT", values + R"(,"ROOT":"O.","COMMIT":true})",
         [&] { return m_App.SetObject("O.", params, true); }},
        {"GET_OBJECT_INSTANCES", R"({"OBJ":"O."})", [&] { return m_App.GetObjectIds("O.", ids); }},
        {"GET_OBJECT_TREE", R"({"OBJ":"O."})", [&] { return m_App.GetObjectTree("O.", tree); }},
        {"ADD_OBJECT_INSTANCE", R"({"OBJ":"O."})", [&] { return m_App.AddObject("O.", id); }},
        {"DELETE_OBJECT_INSTANCE", R"({"OBJ":"O.1."})", [&] { return m_App.RemoveObject("O.1."); }},
        {"GET_INDEX_MAP", "{}", [&] { return m_App.GetIndexMap(maps); }},
        {"GET_LONG_PARAM", R"({"NAME":"A"})",
         [&] {
             ostelAppLibReleaseLongParamRequest(&value);
             return ostelAppLibGetLongParam(&value);
         }},
        {"SET_LONG_PARAM", R"({"NAME":"A","VALUE":"text","COMMIT":true})", [&] {
             auto request = Named<tOstelAppLibLongParamRequest>("A");
             request.value = text;
             return ostelAppLibSetLongParam(&request, true);
         }}};
    std::map<std::string, std::string> wholes;
    for (const TRequest& request : requests) {
        AnswerParams(request.type, {});
        RunOutOfJson(request, RC_RUNTIME_ERROR);
        wholes[request.type] = request.whole;
    }
    for (const auto& request : m_Dispatcher.Requests()) {
        EXPECT_EQ(request.text, wholes[request.member]) << request.member;
    }
    ostelAppLibReleaseLongParamRequest(&value);
}

// The last allocation of a request is for its record. How many come before it differs from one time
// to the next: it is approached from behind.
template <typename Ask>
tOstelReturnCode FailTheLastAllocation(Ask ask) {
    const std::size_t before = Allocations::Count();
    tOstelReturnCode code = ask();
    for (std::size_t count = Allocations::Count() - before; code == RC_SUCCESS && count > 0;) {
        Allocations::FailOneAfter(--count);
        code = ask();
        Allocations::GoOn();
    }
    return code;
}

class OstelAppLibRemoteMemory : public OstelAppLib {
protected:
    OstelAppLibRemoteMemory() { m_App.EnableSecureRemote("", "", ""); }
};

TEST_F(OstelAppLibRemoteMemory, AParameterRequestIsKept) {
    const TlsPeer peer({}, TlsPeer::Framed(R"({"PARAMS":[{"NAME":"A"},{"NAME":"B"}],)"
                                           R"("STATUS":"OK"})"));
    tOstelAppLibParamRequest request = {};
    const auto ask = [&] {
        ostelAppLibReleaseParamRequest(&request);
        request = Named<tOstelAppLibParamRequest>("Device.");
        std::strcpy(request.remote, peer.Host().c_str());
        Fill(request.array, {"before"});
        return ostelAppLibGetParamRemote(&request);
    };
    EXPECT_EQ(FailTheLastAllocation(ask), RC_RUNTIME_ERROR);
    EXPECT_FALSE(request.isArray);
    ASSERT_EQ(request.array.count, 1U);
    EXPECT_STREQ(request.array.params[0].name, "before");
    ostelAppLibReleaseParamRequest(&request);
}

TEST_F(OstelAppLibRemoteMemory, AFilesRecordIsKept) {
    const TlsPeer peer({}, TlsPeer::Framed(R"({"STATUS":"OK"})", "content"));
    tOstelAppLibLongParamRequest request = {};
    const auto ask = [&] {
        ostelAppLibReleaseLongParamRemote(&request);
        request = Named<tOstelAppLibLongParamRequest>("file");
        std::strcpy(request.remote, peer.Host().c_str());
        ostelAppLibAllocateLongParamRequest(&request, 3);
        std::memcpy(request.value, "old", 3);
        return ostelAppLibGetFileRemote(&request);
    };
    EXPECT_EQ(FailTheLastAllocation(ask), RC_RUNTIME_ERROR);
    EXPECT_EQ(std::string(request.value, request.size), "old");
    ostelAppLibReleaseLongParamRemote(&request);
}

class TObserver : public IOstelDataModelChangeObserverRemote {
public:
    void OnDataModelChangeRemote(const std::string&, const std::string&,
                                 const std::string&) override {}
};

TEST_F(OstelAppLibRemoteMemory, ARequestGoesOutWholeOrNotAtAll) {
    AnswerParams("GET_PARAM", {Param("A", "1")});
    ASSERT_EQ(m_App.GetUnitSerialNumber(), "1");
    const TlsPeer peer({}, TlsPeer::Framed(R"({"STATUS":"OK"})"));
    const std::string host = peer.Host();
    const std::string subscription = R"(","EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED",)"
                                     R"("PARAMS":[{"NAME":"A"}],"SERIAL_NUMBER":"1"})";
    TParams read;
    std::vector<char> file;
    TObserver observer;
    const TRequest requests[] = {
        {"COMMIT", R"("})", [&] { return m_App.CommitRemote(host); }},
        {"GET_PARAM", R"(","NAME":"A"})", [&] { return m_App.GetParamRemote(host, "A", read); }},
        {"SET_PARAM", R"(","NAME":"A","VALUE":"1","COMMIT":true})",
         [&] { return m_App.SetParamRemote(host, "A", "1", true); }},
        {"GET_FILE", R"(","FILE_NAME":"A"})", [&] { return m_App.GetFileRemote(host, "A", file); }},
        {"SEND_EVENT", R"(","EVENT_NAME":"A","EVENT_DATA":"1"})",
         [&] { return m_App.SendEventRemote(host, "A", "1"); }},
        {"SUBSCRIBE", subscription,
         [&] {
             return m_App.AddDataModelChangeObserverRemote(host, read = {{"A", ""}}, &observer);
         }},
        {"UNSUBSCRIBE", subscription,
         [&] { return m_App.RemoveDataModelChangeObserverRemote(host, {"A"}, &observer); }}};
    std::set<std::string> wholes;
    for (const TRequest& request : requests) {
        RunOutOfJson(request, RC_FAILURE);
        wholes.insert(R"({"REQUEST_TYPE":")" + request.type + request.whole);
    }
    const std::vector<std::string> texts = peer.Requests();
    EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()), wholes);
}

}  // namespace
