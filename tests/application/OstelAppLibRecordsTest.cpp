// The flat interface's records: their layout, their texts and what is allocated in them.
#include <algorithm>
#include <iterator>

#include "OstelAppLibTest.h"

namespace {

static_assert(sizeof(tOstelAppLibParam) == 512, "name and value");
static_assert(offsetof(tOstelAppLibParam, value) == 256, "behind the name");
static_assert(offsetof(tOstelAppLibParamRequest, array) == 512, "behind name and value");
#if __SIZEOF_POINTER__ == 4
static_assert(sizeof(tOstelAppLibParamArray) == 8, "pointer and count");
static_assert(offsetof(tOstelAppLibParamRequest, isArray) == 520, "behind the array");
static_assert(offsetof(tOstelAppLibParamRequest, remote) == 524, "aligned to 4");
static_assert(sizeof(tOstelAppLibParamRequest) == 780, "up to the remote unit");
static_assert(offsetof(tOstelAppLibLongParamRequest, remote) == 264, "behind value and size");
static_assert(sizeof(tOstelAppLibLongParamRequest) == 520, "up to the remote unit");
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
static_assert(sizeof(tOstelAppLibParamRequest::remote) == 256, "a text like the others");
static_assert(sizeof(tOstelAppLibLongParamRequest::remote) == 256, "a text like the others");

class OstelAppLibRecords : public OstelAppLib {};

TEST_F(OstelAppLibRecords, TextsAreCutAt255Characters) {
    for (const std::size_t length :
         {std::size_t{254}, std::size_t{255}, std::size_t{256}, std::size_t{10000}}) {
        const std::string text(length, 'x');
        const std::string cut = text.substr(0, 255);
        AnswerParams("GET_PARAM", {Param("A", text)});
        auto request = Named<tOstelAppLibParamRequest>("A");
        EXPECT_EQ(ostelAppLibGetParam(&request), RC_SUCCESS);
        EXPECT_EQ(request.value, cut);
        AnswerParams("GET_PARAM", {Param(text, text), Param("B", "2")});
        EXPECT_EQ(ostelAppLibGetParam(&request), RC_SUCCESS);
        EXPECT_EQ(request.array.params[0].name, cut);
        EXPECT_EQ(request.array.params[0].value, cut);
        ostelAppLibReleaseParamRequest(&request);
        m_Dispatcher.Answer("GET_INDEX_MAP", R"({"DATA_MODELS":[{"NAME":")" + text + "\"}]}");
        tOstelAppLibIndexMapRequest maps = {};
        EXPECT_EQ(ostelAppLibGetIndexMapping(&maps), RC_SUCCESS);
        EXPECT_EQ(maps.maps[0].name, cut);
        ostelAppLibReleaseIndexMapRequest(&maps);
    }
}

// Each request with the texts "n", "v" and "o" of full fields, none of which ends in a NUL.
std::string Full(std::string document) {
    for (const char c : {'n', 'v', 'o'}) {
        const std::size_t place = document.find(std::string{'"', c, '"'});
        if (place != std::string::npos) {
            document.replace(place + 1, 1, 256, c);
        }
    }
    return document;
}

TEST_F(OstelAppLibRecords, AFieldMayBeFullToItsLastByte) {
    tOstelAppLibParam param = {};
    std::memset(param.name, 'n', sizeof param.name);
    std::memset(param.value, 'v', sizeof param.value);
    tOstelAppLibParamArray array = {&param, 1};
    auto object = Named<tOstelAppLibObjectRequest>(std::string(256, 'o'));
    object.params = array;
    auto request = Named<tOstelAppLibParamRequest>(std::string(256, 'n'));
    std::memset(request.value, 'x', sizeof request.value);
    auto ids = Named<tOstelAppLibObjectIdsRequest>(std::string(256, 'o'));
    std::memset(&ids.ids, 'x', sizeof ids.ids);  // is not looked at: the request fails
    auto longParam = Named<tOstelAppLibLongParamRequest>(std::string(256, 'n'));
    longParam.value = param.value;
    longParam.size = 1;
    const struct {
        const char* type;
        tOstelReturnCode code;
        const char* document;
    } cases[] = {
        {"GET_PARAM", ostelAppLibGetParam(&request), R"({"NAME":"n"})"},
        {"SET_PARAM", ostelAppLibSetParam(&param, true),
         R"({"NAME":"n","VALUE":"v","COMMIT":true})"},
        {"GET_PARAM_ARRAY", ostelAppLibGetParamArray(&array), R"({"PARAMS":[{"NAME":"n"}]})"},
        {"SET_PARAM_ARRAY", ostelAppLibSetParamArray(&array, true),
         R"({"PARAMS":[{"NAME":"n","VALUE":"v"}],"COMMIT":true})"},
        {"GET_OBJECT", ostelAppLibGetObject(&object), R"({"PARAMS":[{"NAME":"n"}],"ROOT":"o"})"},
        {"SET_OBJECT", ostelAppLibSetObject(&object, true),
         R"({"PARAMS":[{"NAME":"n","VALUE":"v"}],"ROOT":"o","COMMIT":true})"},
        {"GET_OBJECT_INSTANCES", ostelAppLibGetObjectIds(&ids), R"({"OBJ":"o"})"},
        {"GET_LONG_PARAM", ostelAppLibGetLongParam(&longParam), R"({"NAME":"n"})"}};
    for (const auto& test : cases) {
        // That of a dispatcher which knows nothing.
        EXPECT_EQ(test.code, RC_FAILURE) << test.type;
        EXPECT_EQ(m_Dispatcher.LastText(test.type), Full(test.document)) << test.type;
    }
    EXPECT_EQ(ostelAppLibSetLongParam(&longParam, true), RC_FAILURE);
    EXPECT_EQ(m_Dispatcher.LastText("SET_LONG_PARAM"),
              R"({"NAME":")" + std::string(256, 'n') + R"(","VALUE":"v","COMMIT":true})");
}

// An application passes its records on, to other processes, too.
TEST_F(OstelAppLibRecords, NoStaleMemoryStandsBehindATextInAnArray) {
    AnswerParams("GET_PARAM", {Param("A", "1"), Param("B", "2")});
    auto request = Named<tOstelAppLibParamRequest>("Device.");
    // What is released here is what the two elements are likely to be made of.
    ostelAppLibAllocateParamArray(&request.array, 2);
    std::memset(request.array.params, 'x', 2 * sizeof *request.array.params);
    ostelAppLibReleaseParamRequest(&request);
    ASSERT_EQ(ostelAppLibGetParam(&request), RC_SUCCESS);
    for (std::uint32_t i = 0; i < request.array.count; ++i) {
        const tOstelAppLibParam& param = request.array.params[i];
        EXPECT_EQ(std::count(std::begin(param.name), std::end(param.name), '\0'), 255);
        EXPECT_EQ(std::count(std::begin(param.value), std::end(param.value), '\0'), 255);
    }
    ostelAppLibReleaseParamRequest(&request);
}

TEST_F(OstelAppLibRecords, NoStaleMemoryStandsBehindTheNameOfAnIndexMap) {
    m_Dispatcher.Answer("GET_INDEX_MAP", R"({"DATA_MODELS":[{"NAME":"A"}]})");
    // As large as the map that comes, so that this is what it is likely to be made of.
    constexpr std::uint32_t size = sizeof(tOstelAppLibIndexMap);
    tOstelAppLibLongParamRequest stale = {};
    ostelAppLibAllocateLongParamRequest(&stale, size);
    std::memset(stale.value, 'x', size);
    ostelAppLibReleaseLongParamRequest(&stale);
    tOstelAppLibIndexMapRequest request = {};
    ASSERT_EQ(ostelAppLibGetIndexMapping(&request), RC_SUCCESS);
    const auto& name = request.maps[0].name;
    EXPECT_EQ(std::count(std::begin(name), std::end(name), '\0'), 255);
    ostelAppLibReleaseIndexMapRequest(&request);
}

// What a caller's slip with the count leaves behind.
TEST_F(OstelAppLibRecords, ARecordWithoutAnArrayIsReleasedWhateverItsCount) {
    tOstelAppLibIndexMapRequest maps = {nullptr, 3};
    ostelAppLibReleaseIndexMapRequest(&maps);
    EXPECT_EQ(maps.count, 3U);
    tOstelAppLibParamArray array = {nullptr, 3};
    ostelAppLibReleaseParamArray(&array);
    EXPECT_EQ(array.count, 0U);
    tOstelAppLibObjectIdsRequest ids = {};
    ids.count = 3;
    ostelAppLibReleaseObjectIdsRequest(&ids);
    EXPECT_EQ(ids.count, 0U);
}

TEST_F(OstelAppLibRecords, NullRecordsAreInvalidArguments) {
    std::uint32_t instance = 0;
    tOstelAppLibParamArray array = {};
    tOstelAppLibObjectRequest object = {};
    tOstelAppLibLongParamRequest longParam = {};
    longParam.size = 1;
    for (const tOstelReturnCode code :
         {ostelAppLibGetParam(nullptr), ostelAppLibSetParam(nullptr, true),
          ostelAppLibGetParamArray(nullptr), ostelAppLibGetParamArray(&array),
          ostelAppLibSetParamArray(nullptr, true), ostelAppLibSetParamArray(&array, true),
          ostelAppLibGetObject(nullptr), ostelAppLibGetObject(&object),
          ostelAppLibSetObject(nullptr, true), ostelAppLibSetObject(&object, true),
          ostelAppLibAddObjectInstance(nullptr, &instance),
          ostelAppLibAddObjectInstance("Device.", nullptr), ostelAppLibDelObjectInstance(nullptr),
          ostelAppLibGetObjectIds(nullptr), ostelAppLibGetIndexMapping(nullptr),
          ostelAppLibGetLongParam(nullptr), ostelAppLibSetLongParam(nullptr, true),
          ostelAppLibSetLongParam(&longParam, true)}) {
        EXPECT_EQ(code, RC_INVALID_ARGUMENT);
    }
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

// Whatever a record has in it, under the names of the fields that hold it.
template <typename Record, typename Array, typename Count>
void ExpectAllocation(Array Record::*array, Count Record::*count,
                      void (*allocate)(Record*, std::uint32_t), void (*release)(Record*)) {
    Record record = {};
    for (const std::uint32_t wanted : {3U, 1U, 0U, 100000U}) {
        // What was there before is released: the leak checker would tell.
        allocate(&record, wanted);
        ASSERT_NE(record.*array, nullptr);
        ASSERT_EQ(record.*count, wanted);
        std::fill_n(record.*array, wanted, std::remove_pointer_t<Array>{});
    }
    for (int times = 0; times < 2; ++times) {
        release(&record);
        EXPECT_EQ(record.*array, nullptr);
        EXPECT_EQ(record.*count, 0U);
    }
}

TEST(OstelAppLibAllocation, ReplacesTheArrayAndReleasesItMoreThanOnce) {
    ExpectAllocation(&tOstelAppLibParamArray::params, &tOstelAppLibParamArray::count,
                     ostelAppLibAllocateParamArray, ostelAppLibReleaseParamArray);
    ExpectAllocation(&tOstelAppLibParamArray::params, &tOstelAppLibParamArray::count,
                     ostelAppLibAllocateParamArrayRequest, ostelAppLibReleaseParamArrayRequest);
    ExpectAllocation(&tOstelAppLibLongParamRequest::value, &tOstelAppLibLongParamRequest::size,
                     ostelAppLibAllocateLongParamRequest, ostelAppLibReleaseLongParamRequest);
    ExpectAllocation(&tOstelAppLibLongParamRequest::value, &tOstelAppLibLongParamRequest::size,
                     ostelAppLibAllocateLongParamRequest, ostelAppLibReleaseLongParamRemote);
    ExpectAllocation(&tOstelAppLibObjectIdsRequest::ids, &tOstelAppLibObjectIdsRequest::count,
                     ostelAppLibAllocateObjectIdsRequest, ostelAppLibReleaseObjectIdsRequest);
}

TEST(OstelAppLibAllocation, IsOfTheParametersInAnObject) {
    tOstelAppLibObjectRequest request = {};
    for (const std::uint32_t wanted : {3U, 1U}) {
        ostelAppLibAllocateObjectRequest(&request, wanted);
        ASSERT_NE(request.params.params, nullptr);
        EXPECT_EQ(request.params.count, wanted);
        request.params.params[wanted - 1] = {};
    }
    for (int times = 0; times < 2; ++times) {
        ostelAppLibReleaseObjectRequest(&request);
        EXPECT_EQ(request.params.params, nullptr);
        EXPECT_EQ(request.params.count, 0U);
    }
}

#ifdef __i386__
TEST(OstelAppLibAllocation, LeavesTheRecordEmptyWhenThereIsNoMemory) {
    tOstelAppLibParamArray array = {};
    ostelAppLibAllocateParamArray(&array, 3);
    ostelAppLibAllocateParamArray(&array, 4294967295U);
    EXPECT_EQ(array.params, nullptr);
    EXPECT_EQ(array.count, 0U);
    tOstelAppLibLongParamRequest request = {};
    ostelAppLibAllocateLongParamRequest(&request, 3);
    ostelAppLibAllocateLongParamRequest(&request, 4294967295U);
    EXPECT_EQ(request.value, nullptr);
    EXPECT_EQ(request.size, 0U);
    tOstelAppLibObjectIdsRequest ids = {};
    ostelAppLibAllocateObjectIdsRequest(&ids, 4294967295U);
    EXPECT_EQ(ids.ids, nullptr);
    EXPECT_EQ(ids.count, 0U);
}
#endif

}  // namespace
