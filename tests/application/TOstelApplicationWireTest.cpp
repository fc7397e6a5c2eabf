// Every request as another program on the bus receives it, byte for byte.
#include <functional>
#include <stdexcept>
#include <unordered_map>

#include "ApplicationTest.h"
#include "FaultyIpc.h"
#include "PrivateMember.h"
#include "TOstelJsonObject.h"

template struct PrivateMember<TIpcOfApplication, &TOstelCommon::m_Ipc>;

namespace {

struct TCase {
    const char* operation;
    const char* method;
    const char* text;
    std::function<int(TOstelApplication&)> call;
};

void PrintTo(const TCase& testCase, std::ostream* stream) {
    *stream << testCase.operation;
}

using TParams = std::vector<TOstelApplication::TOstelAppParam>;
using TGroups = std::vector<std::vector<std::pair<std::string, std::string>>>;

TParams Two() {
    return {{"Device.A", "1"}, {"Device.B", "a\"b\\c/\n\xc3\xa4"}};
}

std::vector<TCase> Cases() {
    return {
        {"GetParamList", "GET_PARAM", R"({"NAME":"Device.A."})",
         [](auto& app) {
             TParams params;
             return app.GetParam("Device.A.", params);
         }},
        {"GetParamValue", "GET_PARAM", R"({"NAME":"Device.A"})",
         [](auto& app) {
             std::string value;
             return app.GetParam("Device.A", value);
         }},
        {"GetParamDocument", "GET_PARAM", R"({"NAME":"Device.*.A"})",
         [](auto& app) {
             TOstelJsonObject result;
             return app.GetParam("Device.*.A", result);
         }},
        {"SetParam", "SET_PARAM", R"({"NAME":"Device.A","VALUE":"1","COMMIT":true})",
         [](auto& app) { return app.SetParam("Device.A", "1", true); }},
        {"SetParamStaged", "SET_PARAM", R"({"NAME":"Device.A","VALUE":"","COMMIT":false})",
         [](auto& app) { return app.SetParam("Device.A", "", false); }},
        {"Commit", "COMMIT", "{}", [](auto& app) { return app.Commit(); }},
        {"GetParamArray", "GET_PARAM_ARRAY",
         R"({"PARAMS":[{"NAME":"Device.A"},{"NAME":"Device.B"}]})",
         [](auto& app) {
             TParams params = Two();
             return app.GetParamArray(params);
         }},
        {"GetParamArrayOfNothing", "GET_PARAM_ARRAY", R"({"PARAMS":[]})",
         [](auto& app) {
             TParams params;
             return app.GetParamArray(params);
         }},
        {"GetParamArrayGrouped", "GET_PARAM_ARRAY",
         R"({"PARAMS":[{"NAME":"Device.*.A"},{"NAME":"Device.B"},{"NAME":"Device.B"}]})",
         [](auto& app) {
             TGroups groups;
             return app.GetParamArray({"Device.*.A", "Device.B", "Device.B"}, groups);
         }},
        {"SetParamArray", "SET_PARAM_ARRAY",
         "{\"PARAMS\":[{\"NAME\":\"Device.A\",\"VALUE\":\"1\"},{\"NAME\":\"Device.B\",\"VALUE\":"
         "\"a\\\"b\\\\c/\\n\xc3\xa4\"}],\"COMMIT\":true}",
         [](auto& app) { return app.SetParamArray(Two(), true); }},
        {"SetParamArrayOfNothing", "SET_PARAM_ARRAY", R"({"PARAMS":[],"COMMIT":false})",
         [](auto& app) { return app.SetParamArray({}, false); }},
        {"GetObject", "GET_OBJECT",
         R"({"PARAMS":[{"NAME":"Device.A"},{"NAME":"Device.B"}],"ROOT":"Device."})",
         [](auto& app) {
             TParams params = Two();
             return app.GetObject("Device.", params);
         }},
        {"SetObject", "SET_OBJECT",
         R"({"PARAMS":[{"NAME":"A","VALUE":"1"}],"ROOT":"Device.","COMMIT":false})",
         [](auto& app) {
             return app.SetObject("Device.", {{"A", "1"}}, false);
         }},
        {"GetObjectIds", "GET_OBJECT_INSTANCES", R"({"OBJ":"Device.Hosts.Host."})",
         [](auto& app) {
             std::vector<int> ids;
             return app.GetObjectIds("Device.Hosts.Host.", ids);
         }},
        {"GetObjectTree", "GET_OBJECT_TREE", R"({"OBJ":"Device."})",
         [](auto& app) {
             std::vector<std::string> names;
             return app.GetObjectTree("Device.", names);
         }},
        {"AddObject", "ADD_OBJECT_INSTANCE", R"({"OBJ":"Device.Hosts.Host."})",
         [](auto& app) {
             int id = 0;
             return app.AddObject("Device.Hosts.Host.", id);
         }},
        {"RemoveObject", "DELETE_OBJECT_INSTANCE", R"({"OBJ":"Device.Hosts.Host.3."})",
         [](auto& app) { return app.RemoveObject("Device.Hosts.Host.3."); }},
        {"GetIndexMap", "GET_INDEX_MAP", "{}",
         [](auto& app) {
             std::unordered_map<std::string, std::vector<std::pair<int, int>>> map;
             return app.GetIndexMap(map);
         }},
    };
}

class TOstelApplicationWire : public ApplicationTest, public testing::WithParamInterface<TCase> {};

TEST_P(TOstelApplicationWire, SendsTheRequestByteForByte) {
    m_Dispatcher.Answer(GetParam().method, "{}");
    EXPECT_EQ(GetParam().call(m_App), 0);
    const auto requests = m_Dispatcher.Requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].member, GetParam().method);
    EXPECT_EQ(requests[0].text, GetParam().text);
    EXPECT_EQ(requests[0].signature, "s");
    EXPECT_EQ(requests[0].path, "/com/Kaven/Ostel/OSTEL_DISPATCHER");
    EXPECT_EQ(requests[0].interface, "com.Kaven.Ostel.Ostel");
}

TEST_P(TOstelApplicationWire, ReturnsTheDispatchersCodeAndLogsNothing) {
    m_Dispatcher.Answer(GetParam().method, "no document", 6);
    const bool mapped = std::string(GetParam().operation) == "Commit";
    EXPECT_EQ(GetParam().call(m_App), mapped ? 5 : 6);
    EXPECT_EQ(RecordingLog::Texts(2).size(), 0U);
}

TEST_P(TOstelApplicationWire, FailsWithARuntimeErrorWhenTheTransportDoes) {
    getOstelIpcInstance()->SetMethodServerId("*", "not a name");
    EXPECT_EQ(GetParam().call(m_App), RC_RUNTIME_ERROR);
    EXPECT_THAT(RecordingLog::Texts(2), testing::ElementsAre("DBusMessage pointer is NULL!"));
}

TEST_P(TOstelApplicationWire, LetsOtherExceptionsPass) {
    TFaultyIpc faulty(std::logic_error("faulty"));
    const TIpcInPlace inPlace(faulty);
    EXPECT_THROW(GetParam().call(m_App), std::logic_error);
    EXPECT_EQ(RecordingLog::Texts(2).size(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Operations, TOstelApplicationWire, testing::ValuesIn(Cases()),
                         [](const auto& testCase) { return testCase.param.operation; });

}  // namespace
