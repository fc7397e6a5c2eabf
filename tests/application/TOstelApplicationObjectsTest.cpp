// What the operations on arrays, objects and index maps make of their replies.
#include <limits>
#include <unordered_map>

#include "ApplicationTest.h"
#include "TOstelJsonObject.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using TIndexMap = std::unordered_map<std::string, std::vector<std::pair<int, int>>>;

class TOstelApplicationObjects : public ApplicationTest {};

TEST_F(TOstelApplicationObjects, AParamArrayIsReplacedByTheReplyInItsOrder) {
    m_Dispatcher.Answer("GET_PARAM_ARRAY",
                        R"({"PARAMS":[{"NAME":"B","VALUE":"2"},{"NAME":"A","VALUE":"1"},)"
                        R"({"NAME":"B","VALUE":"3"}]})");
    TParams params = {{"A", "old"}};
    EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
    EXPECT_THAT(params, ElementsAre(IsParam("B", "2"), IsParam("A", "1"), IsParam("B", "3")));
}

TEST_F(TOstelApplicationObjects, AShorterReplyShrinksTheArray) {
    m_Dispatcher.Answer("GET_PARAM_ARRAY", R"({"PARAMS":[{"NAME":"C","VALUE":"3"}]})");
    TParams params = {{"A", "1"}, {"B", "2"}, {"C", ""}};
    EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
    EXPECT_THAT(params, ElementsAre(IsParam("C", "3")));
}

TEST_F(TOstelApplicationObjects, AnEmptyArrayTakesWhateverComes) {
    m_Dispatcher.Answer("GET_PARAM_ARRAY", R"({"PARAMS":[{"NAME":"A","VALUE":"1"}]})");
    TParams params;
    EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
    EXPECT_THAT(params, ElementsAre(IsParam("A", "1")));
    m_Dispatcher.Answer("GET_PARAM_ARRAY", R"({"PARAMS":[]})");
    EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
    EXPECT_THAT(params, IsEmpty());
}

// Each name comes out of the request as it went in, whatever a JSON text has to escape in it.
TEST_F(TOstelApplicationObjects, EveryNameIsSentAsADocumentHoldsIt) {
    m_Dispatcher.Answer("GET_PARAM_ARRAY", R"({"PARAMS":[]})");
    std::vector<std::string> names = {"",     "Device.Hosts.", "\xc3\xa9",        "a\"b\\c/d",
                                      "\x7f", "~ !#",          "\xf0\x9f\x98\x80"};
    for (char c = 0; c < ' '; ++c) {
        names.emplace_back(1, c);
    }
    TParams params;
    std::vector<TOstelJsonObject> expected(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        params.push_back({names[i], "unused"});
        expected[i].SetPropertyValue("NAME", names[i]);
    }
    TOstelJsonObject document;
    document.SetPropertySequence("PARAMS", expected);
    EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.LastText("GET_PARAM_ARRAY"), document.EncodeToString(-1));
}

TEST_F(TOstelApplicationObjects, AFailureLeavesTheArrayAlone) {
    m_Dispatcher.Answer("GET_PARAM_ARRAY", R"({"PARAMS":[]})", 4);
    m_Dispatcher.Answer("GET_OBJECT", R"({"PARAMS":[]})", 4);
    TParams params = {{"A", "1"}};
    EXPECT_EQ(m_App.GetParamArray(params), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_App.GetObject("Device.", params), RC_INVALID_PARAM_NAME);
    EXPECT_THAT(params, ElementsAre(IsParam("A", "1")));
}

TEST_F(TOstelApplicationObjects, AnObjectIsReadAsAnArrayIs) {
    m_Dispatcher.Answer("GET_OBJECT", R"({"PARAMS":[{"NAME":"A","VALUE":"1"}]})");
    TParams params = {{"A", ""}, {"B", ""}};
    EXPECT_EQ(m_App.GetObject("Device.", params), RC_SUCCESS);
    EXPECT_THAT(params, ElementsAre(IsParam("A", "1")));
}

TEST_F(TOstelApplicationObjects, ElementsWithoutMembersOverwriteWithEmptyTexts) {
    m_Dispatcher.Answer("GET_PARAM_ARRAY", R"({"PARAMS":[{},7,null,[],"x",{"NAME":5,"VALUE":true},)"
                                           R"({"VALUE":"v"},{"NAME":"n"}]})");
    TParams params(9, TParam{"old", "old"});
    EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
    EXPECT_THAT(params,
                ElementsAre(IsParam("", ""), IsParam("", ""), IsParam("", ""), IsParam("", ""),
                            IsParam("", ""), IsParam("", ""), IsParam("", "v"), IsParam("n", "")));
}

TEST_F(TOstelApplicationObjects, PopulatingFromADocumentWithoutParamsEmptiesTheList) {
    TOstelJsonObject reply;
    TParams params(3);
    m_App.PopulateParamArray(reply, params);
    EXPECT_THAT(params, IsEmpty());
    reply.SetPropertyValue("PARAMS", 3);
    params.resize(2);
    m_App.PopulateParamArray(reply, params);
    EXPECT_THAT(params, IsEmpty());
}

TEST_F(TOstelApplicationObjects, AListAndItsDocumentAreTurnedIntoEachOther) {
    const TParams params = {{"A", "1"}, {"", ""}, {"A", "\n"}};
    TOstelJsonObject document;
    document.SetPropertyValue("FIRST", 1);
    m_App.ParamArrayToJson(params, document);
    EXPECT_EQ(document.EncodeToString(-1),
              R"({"FIRST":1,"PARAMS":[{"NAME":"A","VALUE":"1"},{"NAME":"","VALUE":""},)"
              R"({"NAME":"A","VALUE":"\n"}]})");
    TParams back;
    m_App.PopulateParamArray(document, back);
    EXPECT_THAT(back, ElementsAre(IsParam("A", "1"), IsParam("", ""), IsParam("A", "\n")));
}

// Kept: callers gather the instances of several objects in one list.
TEST_F(TOstelApplicationObjects, InstancesAreAddedToWhatIsThere) {
    m_Dispatcher.Answer("GET_OBJECT_INSTANCES", R"({"IDS":[3,1,2147483647,-4,1]})");
    std::vector<int> ids = {7};
    EXPECT_EQ(m_App.GetObjectIds("Device.Hosts.Host.", ids), RC_SUCCESS);
    EXPECT_THAT(ids, ElementsAre(7, 3, 1, 2147483647, -4, 1));
}

TEST_F(TOstelApplicationObjects, AnInstanceThatIsNoIntegerIsZero) {
    m_Dispatcher.Answer("GET_OBJECT_INSTANCES", R"({"IDS":["5",1.5,null,[2],{"ID":3},true,9]})");
    std::vector<int> ids;
    EXPECT_EQ(m_App.GetObjectIds("Device.Hosts.Host.", ids), RC_SUCCESS);
    EXPECT_THAT(ids, ElementsAre(0, 0, 0, 0, 0, 0, 9));
}

// Kept: whoever writes the documents knows how wide these numbers are.
TEST_F(TOstelApplicationObjects, ANumberKeepsItsLow32Bits) {
    m_Dispatcher.Answer("GET_OBJECT_INSTANCES", R"({"IDS":[4294967299,2147483648,-4294967297]})");
    std::vector<int> ids;
    EXPECT_EQ(m_App.GetObjectIds("Device.Hosts.Host.", ids), RC_SUCCESS);
    EXPECT_THAT(ids, ElementsAre(3, std::numeric_limits<int>::min(), -1));
    m_Dispatcher.Answer("ADD_OBJECT_INSTANCE", R"({"ID":4294967299})");
    int id = 7;
    EXPECT_EQ(m_App.AddObject("Device.Hosts.Host.", id), RC_SUCCESS);
    EXPECT_EQ(id, 3);
    m_Dispatcher.Answer("GET_INDEX_MAP",
                        R"({"DATA_MODELS":[{"NAME":"A","INDEX_MAP":[)"
                        R"({"APP_INDEX":4294967299,"PLATFORM_INDEX":2147483648}]}]})");
    TIndexMap map;
    EXPECT_EQ(m_App.GetIndexMap(map), RC_SUCCESS);
    EXPECT_THAT(map["A"], ElementsAre(Pair(3, std::numeric_limits<int>::min())));
}

TEST_F(TOstelApplicationObjects, TheTreeIsAddedToWhatIsThere) {
    m_Dispatcher.Answer("GET_OBJECT_TREE", R"({"PARAMS":["Device.B","Device.A",5,{}]})");
    std::vector<std::string> names = {"mine"};
    EXPECT_EQ(m_App.GetObjectTree("Device.", names), RC_SUCCESS);
    EXPECT_THAT(names, ElementsAre("mine", "Device.B", "Device.A", "", ""));
}

TEST_F(TOstelApplicationObjects, AddObjectYieldsTheNewInstance) {
    m_Dispatcher.Answer("ADD_OBJECT_INSTANCE", R"({"ID":42})");
    int id = 7;
    EXPECT_EQ(m_App.AddObject("Device.Hosts.Host.", id), RC_SUCCESS);
    EXPECT_EQ(id, 42);
}

TEST_F(TOstelApplicationObjects, AddObjectYieldsZeroWhenTheReplyHasNoInteger) {
    for (const char* reply : {"{}", R"({"ID":"42"})", R"({"ID":[42]})", R"({"ID":1.5})", "[]"}) {
        m_Dispatcher.Answer("ADD_OBJECT_INSTANCE", reply);
        int id = 7;
        EXPECT_EQ(m_App.AddObject("Device.Hosts.Host.", id), RC_SUCCESS) << reply;
        EXPECT_EQ(id, 0) << reply;
    }
}

TEST_F(TOstelApplicationObjects, AFailedAddLeavesTheInstanceAlone) {
    m_Dispatcher.Answer("ADD_OBJECT_INSTANCE", R"({"ID":42})", 6);
    int id = 7;
    EXPECT_EQ(m_App.AddObject("Device.Hosts.Host.", id), RC_NOT_FOUND);
    EXPECT_EQ(id, 7);
}

TEST_F(TOstelApplicationObjects, RemoveObjectDoesNotExamineTheReply) {
    m_Dispatcher.Answer("DELETE_OBJECT_INSTANCE", "{");
    EXPECT_EQ(m_App.RemoveObject("Device.Hosts.Host.1."), RC_SUCCESS);
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_F(TOstelApplicationObjects, AnIndexMapKeepsTheOrderOfItsPairs) {
    m_Dispatcher.Answer("GET_INDEX_MAP",
                        R"({"DATA_MODELS":[{"NAME":"A","INDEX_MAP":[)"
                        R"({"APP_INDEX":2,"PLATFORM_INDEX":20},{"PLATFORM_INDEX":10},)"
                        R"({"APP_INDEX":2},{},7,{"APP_INDEX":"2","PLATFORM_INDEX":null}]}]})");
    TIndexMap map;
    EXPECT_EQ(m_App.GetIndexMap(map), RC_SUCCESS);
    EXPECT_THAT(map,
                UnorderedElementsAre(Pair("A", ElementsAre(Pair(2, 20), Pair(0, 10), Pair(2, 0),
                                                           Pair(0, 0), Pair(0, 0), Pair(0, 0)))));
}

TEST_F(TOstelApplicationObjects, ADataModelListedTwiceEndsWithItsSecondList) {
    m_Dispatcher.Answer("GET_INDEX_MAP",
                        R"({"DATA_MODELS":[)"
                        R"({"NAME":"A","INDEX_MAP":[{"APP_INDEX":1,"PLATFORM_INDEX":1}]},)"
                        R"({"NAME":"A","INDEX_MAP":[{"APP_INDEX":2,"PLATFORM_INDEX":3}]}]})");
    TIndexMap map;
    EXPECT_EQ(m_App.GetIndexMap(map), RC_SUCCESS);
    EXPECT_THAT(map, UnorderedElementsAre(Pair("A", ElementsAre(Pair(2, 3)))));
}

TEST_F(TOstelApplicationObjects, ADataModelWithoutPairsEndsWithAnEmptyList) {
    m_Dispatcher.Answer("GET_INDEX_MAP",
                        R"({"DATA_MODELS":[{"NAME":"A","INDEX_MAP":[]},{"NAME":"B"},)"
                        R"({"NAME":"C","INDEX_MAP":{}},{"INDEX_MAP":[{}]}]})");
    TIndexMap map = {{"A", {{1, 1}}}};
    EXPECT_EQ(m_App.GetIndexMap(map), RC_SUCCESS);
    EXPECT_THAT(map, UnorderedElementsAre(Pair("A", IsEmpty()), Pair("B", IsEmpty()),
                                          Pair("C", IsEmpty()), Pair("", ElementsAre(Pair(0, 0)))));
}

// Kept: callers merge the maps of several replies.
TEST_F(TOstelApplicationObjects, AnIndexMapKeepsTheDataModelsThatTheReplyDoesNotName) {
    m_Dispatcher.Answer("GET_INDEX_MAP", R"({"DATA_MODELS":[{"NAME":"B"}]})");
    TIndexMap map = {{"A", {{1, 2}}}};
    EXPECT_EQ(m_App.GetIndexMap(map), RC_SUCCESS);
    EXPECT_THAT(map,
                UnorderedElementsAre(Pair("A", ElementsAre(Pair(1, 2))), Pair("B", IsEmpty())));
}

TEST_F(TOstelApplicationObjects, AFailureLeavesTheOutputsAlone) {
    for (const char* method : {"GET_OBJECT_INSTANCES", "GET_OBJECT_TREE", "GET_INDEX_MAP"}) {
        m_Dispatcher.Answer(method, R"({"IDS":[1],"PARAMS":["a"],"DATA_MODELS":[{}]})", 6);
    }
    std::vector<int> ids = {7};
    std::vector<std::string> names = {"mine"};
    TIndexMap map = {{"A", {}}};
    EXPECT_EQ(m_App.GetObjectIds("Device.", ids), RC_NOT_FOUND);
    EXPECT_EQ(m_App.GetObjectTree("Device.", names), RC_NOT_FOUND);
    EXPECT_EQ(m_App.GetIndexMap(map), RC_NOT_FOUND);
    EXPECT_THAT(ids, ElementsAre(7));
    EXPECT_THAT(names, ElementsAre("mine"));
    EXPECT_EQ(map.size(), 1U);
}

}  // namespace
