// Arrays, objects and instances, served by the real gateway.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <unordered_map>

#include "FullModel.h"
#include "GatewayFixture.h"
#include "WaitUntil.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using TParam = TOstelApplication::TOstelAppParam;
using TParams = std::vector<TParam>;

const std::string HOSTS = "Device.Hosts.Host.";
const std::string MAPPINGS = "Device.NAT.PortMapping.";

TParam Param(const std::string& name, const std::string& value = "") {
    TParam param;
    param.name = name;
    param.value = value;
    return param;
}

class GatewayObjects : public Gateway {
protected:
    std::vector<int> Ids(const std::string& table) {
        std::vector<int> ids;
        EXPECT_EQ(m_App.GetObjectIds(table, ids), RC_SUCCESS);
        return ids;
    }

    int Add(const std::string& table) {
        int id = 0;
        EXPECT_EQ(m_App.AddObject(table, id), RC_SUCCESS);
        return id;
    }
};

TEST_F(GatewayObjects, ReadsArraysInTheOrderAskedFor) {
    TParams params = {Param("Device.DeviceInfo.SerialNumber"), Param("Device.Time.Enable"),
                      Param("Device.DeviceInfo.MemoryStatus.")};
    EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
    ASSERT_EQ(params.size(), 4U);
    EXPECT_EQ(params[0].value, "KV0123456789");
    EXPECT_EQ(params[1].name, "Device.Time.Enable");
    EXPECT_EQ(params[3].name, "Device.DeviceInfo.MemoryStatus.Free");
    params = {Param("Device.Time.Enable"), Param("Device.Nothing")};
    EXPECT_EQ(m_App.GetParamArray(params), RC_INVALID_PARAM_NAME);
    params.clear();
    EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
    EXPECT_TRUE(params.empty());
}

TEST_F(GatewayObjects, GroupsWhatAStarMatches) {
    std::vector<std::vector<std::pair<std::string, std::string>>> results;
    EXPECT_EQ(m_App.GetParamArray({HOSTS + "*.HostName", "Device.Time.Enable"}, results),
              RC_SUCCESS);
    ASSERT_EQ(results.size(), 2U);
    EXPECT_EQ(results[0].size(), 4U);
    EXPECT_THAT(results[1], ElementsAre(Pair("Device.Time.Enable", "true")));
}

TEST_F(GatewayObjects, WritesAnArrayAsAWholeOrNotAtAll) {
    const std::string led = "Device.X_KAVEN_COM_General.LED.";
    EXPECT_EQ(
        m_App.SetParamArray({Param(led + "State", "BLINK"), Param(led + "Brightness", "x")}, true),
        RC_INVALID_PARAM_VALUE);
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    EXPECT_EQ(Value(led + "State"), "ON");
    EXPECT_EQ(
        m_App.SetParamArray({Param(led + "State", "BLINK"), Param(led + "Brightness", "5")}, true),
        RC_SUCCESS);
    EXPECT_EQ(Value(led + "State"), "BLINK");
    EXPECT_EQ(Value(led + "Brightness"), "5");
}

TEST_F(GatewayObjects, ReadsAndWritesWholeObjects) {
    const std::string led = "Device.X_KAVEN_COM_General.LED.";
    TParams params = {Param("State"), Param(led + "Brightness")};
    EXPECT_EQ(m_App.GetObject(led, params), RC_SUCCESS);
    ASSERT_EQ(params.size(), 2U);
    EXPECT_EQ(params[0].name, led + "State");
    EXPECT_EQ(params[1].value, "80");
    params.clear();
    EXPECT_EQ(m_App.GetObject(led, params), RC_SUCCESS);
    EXPECT_GE(params.size(), 2U);
    EXPECT_EQ(m_App.SetObject(led, {Param("State", "PULSE"), Param("Brightness", "7")}, true),
              RC_SUCCESS);
    EXPECT_EQ(Value(led + "State"), "PULSE");
    EXPECT_EQ(Value(led + "Brightness"), "7");
    EXPECT_EQ(m_App.SetObject(led, {Param("State", "ON"), Param("Brightness", "777")}, true),
              RC_INVALID_PARAM_VALUE);
    EXPECT_EQ(Value(led + "State"), "PULSE");
    params = {Param("Device.Time.Enable")};
    EXPECT_EQ(m_App.GetObject(led, params), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_App.GetObject("Device.X_KAVEN_COM_General.LED", params), RC_INVALID_PARAM_NAME);
}

TEST_F(GatewayObjects, RefusesObjectsThatAreNotThereEvenWithoutParameters) {
    for (const char* root : {"", ".", "Device", "Device.Nothing.", "Device.Hosts.Host.99.",
                             "Device.Hosts.Host.*.", "Device.DeviceInfo.ModelName"}) {
        EXPECT_EQ(m_App.SetObject(root, {}, true), RC_INVALID_PARAM_NAME) << root;
    }
    for (const char* root :
         {"Device.", "Device.DeviceInfo.", "Device.Hosts.Host.", "Device.Hosts.Host.10."}) {
        EXPECT_EQ(m_App.SetObject(root, {}, true), RC_SUCCESS) << root;
    }
    EXPECT_EQ(m_App.SetParamArray({}, true), RC_SUCCESS);
}

TEST_F(GatewayObjects, ListsInstancesAndTrees) {
    EXPECT_THAT(Ids(HOSTS), ElementsAre(1, 2, 3, 10));
    std::vector<std::string> names;
    EXPECT_EQ(m_App.GetObjectTree("Device.DeviceInfo.MemoryStatus.", names), RC_SUCCESS);
    EXPECT_THAT(names, ElementsAre("Device.DeviceInfo.MemoryStatus.",
                                   "Device.DeviceInfo.MemoryStatus.Total",
                                   "Device.DeviceInfo.MemoryStatus.Free"));
    std::vector<int> ids;
    EXPECT_EQ(m_App.GetObjectIds("Device.DeviceInfo.", ids), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_App.GetObjectTree("Device.Nothing.", names), RC_INVALID_PARAM_NAME);
}

TEST_F(GatewayObjects, AddsAndDeletesInstancesWithTheCommit) {
    const std::vector<int> before = Ids(MAPPINGS);
    const RawPeer peer;
    const int id = Add(MAPPINGS);
    const std::string path = MAPPINGS + std::to_string(id) + ".";
    EXPECT_EQ(m_App.SetParam(path + "Description", "game", false), RC_SUCCESS);
    EXPECT_EQ(Ids(MAPPINGS), before);
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    EXPECT_EQ(Ids(MAPPINGS).size(), before.size() + 1);
    EXPECT_EQ(Value(path + "Description"), "game");
    EXPECT_EQ(Value("Device.NAT.PortMappingNumberOfEntries"), std::to_string(before.size() + 1));
    m_App.SendEvent("LAST", "");
    ASSERT_TRUE(peer.WaitForMember("LAST"));
    std::string changes;
    for (const RawPeer::TMessage& message : peer.Received()) {
        changes += message.text + "\n";
    }
    EXPECT_THAT(changes, HasSubstr(R"({"DATA_MODEL_NAME":")" + path +
                                   R"(Description","DATA_MODEL_VALUE":"game"})"));
    EXPECT_THAT(changes,
                HasSubstr(R"("Device.NAT.PortMappingNumberOfEntries","DATA_MODEL_VALUE")"));
    EXPECT_EQ(m_App.RemoveObject(path), RC_SUCCESS);
    EXPECT_EQ(Value(path + "Description"), "game");
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    EXPECT_EQ(Ids(MAPPINGS), before);
    EXPECT_EQ(m_App.RemoveObject(path), RC_INVALID_PARAM_NAME);
}

TEST_F(GatewayObjects, InstancesAndTheirNumbersSurviveACrash) {
    const std::vector<int> before = Ids(MAPPINGS);
    const int kept = Add(MAPPINGS);
    const std::string name = MAPPINGS + std::to_string(kept) + ".Description";
    EXPECT_EQ(m_App.SetParam(name, "kept", false), RC_SUCCESS);
    const int deleted = Add(MAPPINGS);
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    EXPECT_EQ(m_App.RemoveObject(MAPPINGS + std::to_string(deleted) + "."), RC_SUCCESS);
    EXPECT_EQ(m_App.RemoveObject(MAPPINGS + std::to_string(before[0]) + "."), RC_SUCCESS);
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    const std::vector<int> after = Ids(MAPPINGS);
    m_Gateway.KillAndRestart();
    EXPECT_EQ(Ids(MAPPINGS), after);
    EXPECT_EQ(Value(name), "kept");
    EXPECT_EQ(Value("Device.NAT.PortMappingNumberOfEntries"), std::to_string(after.size()));
    EXPECT_EQ(Add(MAPPINGS), deleted + 1);
}

// An addition leaves nothing behind until it is committed, not even its number.
TEST_F(GatewayObjects, ANumberThatWasNeverCommittedIsGivenAgainAfterACrash) {
    const int id = Add(MAPPINGS);
    EXPECT_EQ(Add(MAPPINGS), id + 1);
    m_Gateway.KillAndRestart();
    EXPECT_EQ(Add(MAPPINGS), id);
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    m_Gateway.KillAndRestart();
    EXPECT_EQ(Add(MAPPINGS), id + 1);
}

TEST_F(GatewayObjects, RefusesInstancesByTheDocumentedCodes) {
    int id = 0;
    EXPECT_EQ(m_App.AddObject("Device.Nothing.", id), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_App.AddObject("Device.NAT.PortMapping", id), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_App.AddObject("Device.DeviceInfo.Processor.", id), RC_NOT_SUPPORTED);
    EXPECT_EQ(m_App.RemoveObject("Device.DeviceInfo.Processor.1."), RC_NOT_SUPPORTED);
    EXPECT_EQ(m_App.RemoveObject(MAPPINGS), RC_INVALID_PARAM_NAME);
    while (m_App.AddObject(MAPPINGS, id) == RC_SUCCESS) {
    }
    EXPECT_EQ(m_App.AddObject(MAPPINGS, id), RC_BUFFER_OVERFLOW);
}

TEST_F(GatewayObjects, TellsThePlatformsNumbers) {
    std::unordered_map<std::string, std::vector<std::pair<int, int>>> map;
    EXPECT_EQ(m_App.GetIndexMap(map), RC_SUCCESS);
    EXPECT_EQ(map.size(), 2U);
    EXPECT_THAT(map["Device.IP.Interface."], ElementsAre(Pair(1, 3), Pair(2, 1), Pair(3, 2)));
    EXPECT_THAT(map["Device.WiFi.SSID."], ElementsAre(Pair(1, 2), Pair(2, 1), Pair(3, 3)));
}

TEST_F(GatewayObjects, CarriesLongValues) {
    const std::string name = "Device.X_KAVEN_COM_General.Storage.ConfigBackup";
    RawPeer peer;
    const std::string value(8 * 1024 * 1024, 'v');
    EXPECT_EQ(Request(peer, "SET_LONG_PARAM",
                      R"({"NAME":")" + name + R"(","VALUE":")" + value + R"(","COMMIT":true})"),
              (std::pair<std::string, int>("{}", 0)));
    EXPECT_TRUE(Request(peer, "GET_LONG_PARAM", R"({"NAME":")" + name + R"("})") ==
                (std::pair<std::string, int>(R"({"VALUE":")" + value + R"("})", 0)));
    for (const char* wrong :
         {"Device.X_KAVEN_COM_General.", "Device.Hosts.Host.*.HostName", "", "Device.Nothing"}) {
        EXPECT_EQ(Request(peer, "GET_LONG_PARAM", std::string(R"({"NAME":")") + wrong + R"("})"),
                  (std::pair<std::string, int>("{}", 4)))
            << wrong;
    }
}

TEST_F(GatewayObjects, AnswersMalformedRequestsWithInvalidArgument) {
    RawPeer peer;
    const std::pair<std::string, int> invalid("{}", 1);
    const struct {
        const char* type;
        std::vector<const char*> requests;
    } cases[] = {
        {"GET_PARAM_ARRAY",
         {"", "{}", R"({"PARAMS":5})", R"({"PARAMS":["x"]})", R"({"PARAMS":[{}]})",
          R"({"PARAMS":[{"NAME":"Device."},{"NAME":1}]})", R"({"PARAMS":{"NAME":"x"}})"}},
        {"SET_PARAM_ARRAY",
         {"{}", R"({"PARAMS":[{"NAME":"x"}],"COMMIT":true})", R"({"PARAMS":[]})",
          R"({"PARAMS":[],"COMMIT":1})", R"({"PARAMS":[{"NAME":"x","VALUE":1}],"COMMIT":true})"}},
        {"GET_OBJECT", {"{}", R"({"PARAMS":[]})", R"({"ROOT":"Device."})"}},
        {"SET_OBJECT",
         {"{}", R"({"PARAMS":[],"COMMIT":true})", R"({"ROOT":"Device.","PARAMS":[]})",
          R"({"ROOT":1,"PARAMS":[],"COMMIT":true})"}},
        {"GET_OBJECT_INSTANCES", {"{}", R"({"OBJ":5})", "[", "nonsense"}},
        {"GET_OBJECT_TREE", {"{}", R"({"OBJ":null})"}},
        {"ADD_OBJECT_INSTANCE", {"{}", R"({"OBJ":[]})"}},
        {"DELETE_OBJECT_INSTANCE", {"{}", R"({"OBJ":true})"}},
        {"GET_LONG_PARAM", {"{}", R"({"NAME":5})"}},
        {"SET_LONG_PARAM", {"{}", R"({"NAME":"x","VALUE":"x"})"}},
        {"GET_INDEX_MAP", {"", "["}},
    };
    for (const auto& one : cases) {
        for (const char* request : one.requests) {
            EXPECT_EQ(Request(peer, one.type, request), invalid) << one.type << " " << request;
        }
    }
}

class FilledGateway : public Gateway {
protected:
    FilledGateway() : Gateway({"--fill", "10"}) {}
};

TEST_F(FilledGateway, ServesEveryRequest) {
    TParams params;
    EXPECT_EQ(m_App.GetParam("Device.", params), RC_SUCCESS);
    EXPECT_GT(params.size(), 4000U);
    std::vector<int> ids;
    EXPECT_EQ(m_App.GetObjectIds(HOSTS, ids), RC_SUCCESS);
    EXPECT_EQ(ids.size(), 10U);
    EXPECT_EQ(Value("Device.Hosts.HostNumberOfEntries"), "10");
    std::vector<std::string> names;
    EXPECT_EQ(m_App.GetObjectTree("Device.", names), RC_SUCCESS);
    EXPECT_GT(names.size(), params.size());
    int id = 0;
    EXPECT_EQ(m_App.AddObject(MAPPINGS, id), RC_SUCCESS);
    EXPECT_EQ(m_App.RemoveObject(MAPPINGS + "3."), RC_SUCCESS);
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    EXPECT_EQ(Value("Device.NAT.PortMappingNumberOfEntries"), "10");
    params.resize(100);
    EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
    EXPECT_EQ(params.size(), 100U);
}

struct TFullModelFile {
    TFullModelFile() { std::ofstream(dir.File("model.xml")) << FullModel(); }

    TempDir dir;
};

class FullGateway : private TFullModelFile, public Gateway {
protected:
    FullGateway() : Gateway({"--model", dir.File("model.xml"), "--fill", "10"}) {}
};

TEST_F(FullGateway, ServesEveryRequest) {
    const std::string table = "Device.Group3.Table87.";
    const std::string inner = table + "10.Inner85.";
    TParams params;
    EXPECT_EQ(m_App.GetParam("Device.", params), RC_SUCCESS);
    EXPECT_GT(params.size(), 90000U);
    EXPECT_EQ(m_App.GetParam(table + "*.Inner85.*.Parameter1", params), RC_SUCCESS);
    EXPECT_EQ(params.size(), 100U);
    EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
    EXPECT_EQ(params.size(), 100U);
    std::vector<std::string> names;
    EXPECT_EQ(m_App.GetObjectTree("Device.", names), RC_SUCCESS);
    EXPECT_GT(names.size(), 90000U);
    params = {Param("Parameter1", "7"), Param("Parameter3", "8")};
    EXPECT_EQ(m_App.SetObject(inner + "9.", params, true), RC_SUCCESS);
    EXPECT_EQ(m_App.GetObject(inner + "9.", params), RC_SUCCESS);
    ASSERT_EQ(params.size(), 2U);
    EXPECT_EQ(params[1].value, "8");
    EXPECT_EQ(m_App.SetParamArray(
                  {Param(inner + "9.Parameter1", "1"), Param(inner + "8.Parameter1", "2")}, true),
              RC_SUCCESS);
    EXPECT_EQ(Value(inner + "8.Parameter1"), "2");
    std::unordered_map<std::string, std::vector<std::pair<int, int>>> map;
    EXPECT_EQ(m_App.GetIndexMap(map), RC_SUCCESS);
    RawPeer peer;
    EXPECT_EQ(Request(peer, "SET_LONG_PARAM",
                      R"({"NAME":")" + inner + R"(8.Parameter3","VALUE":"9","COMMIT":true})"),
              (std::pair<std::string, int>("{}", 0)));
    EXPECT_EQ(Request(peer, "GET_LONG_PARAM", R"({"NAME":")" + inner + R"(8.Parameter3"})"),
              (std::pair<std::string, int>(R"({"VALUE":"9"})", 0)));
    int id = 0;
    EXPECT_EQ(m_App.AddObject(inner, id), RC_SUCCESS);
    EXPECT_EQ(id, 11);
    EXPECT_EQ(m_App.SetParam(inner + "11.Parameter1", "5", true), RC_SUCCESS);
    EXPECT_EQ(Value(inner + "11.Parameter1"), "5");
    EXPECT_EQ(m_App.RemoveObject(table + "10."), RC_SUCCESS);
    EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
    EXPECT_EQ(Value(inner + "11.Parameter1"), "not read");
    std::vector<int> ids;
    EXPECT_EQ(m_App.GetObjectIds(table, ids), RC_SUCCESS);
    EXPECT_EQ(ids.size(), 9U);
}

// More than a message of the bus can carry.
TEST(GatewayModels, SaysWhenAnAnswerIsTooLarge) {
    const PrivateBus bus;
    TempDir dir;
    std::ofstream(dir.File("model.json"))
        << R"({"objects":[{"path":"Device.T.{i}.U.{i}.","parameters":[{"name":"P","type":"string",)"
        << R"("access":"readWrite","default":")" << std::string(400, 'x') << R"("}]}]})";
    setenv("ZT_LOGGING_DESTINATION", "8", 1);
    setenv("ZT_LOGGING_FILE", dir.File("log").c_str(), 1);
    const GatewayProcess gateway(OSTEL_GATEWAY,
                                 {"--model", dir.File("model.json"), "--fill", "300"});
    TOstelApplication& app = *TOstelApplication::GetInstance();
    app.Initialize(OSTEL_CLI);
    const auto log = [&] {
        std::ostringstream text;
        text << std::ifstream(dir.File("log")).rdbuf();
        return text.str();
    };
    TParams params;
    EXPECT_EQ(app.GetParam("Device.", params), RC_BUFFER_OVERFLOW);
    EXPECT_TRUE(WaitUntil([&] {
        return log().find("GET_PARAM: there is no room for the answer") != std::string::npos;
    })) << log();
    EXPECT_EQ(app.GetParam("Device.T.300.", params), RC_SUCCESS);
    EXPECT_EQ(params.size(), 300U);
}

TEST(GatewayModels, SayNothingOfAnIndexMapThatIsTooLarge) {
    const PrivateBus bus;
    TempDir dir;
    std::ofstream(dir.File("model.json"))
        << R"({"objects":[{"path":"Device.T.{i}.)" << std::string(1 << 20, 'U')
        << R"(.{i}.","indexMap":[{"app":1,"platform":2}]}]})";
    const GatewayProcess gateway(OSTEL_GATEWAY,
                                 {"--model", dir.File("model.json"), "--fill", "40"});
    struct TRequests : Gateway {
        using Gateway::Request;
    };
    RawPeer peer;
    const auto [text, code] = TRequests::Request(peer, "GET_INDEX_MAP", "{}");
    EXPECT_EQ(code, RC_BUFFER_OVERFLOW);
    EXPECT_TRUE(text == R"({"DATA_MODELS":[]})") << text.size();
}

TEST(GatewayModels, AreLaidOverEachOther) {
    const PrivateBus bus;
    TempDir dir;
    std::ofstream(dir.File("standard.xml"))
        << R"(<dm:document xmlns:dm="urn:broadband-forum-org:cwmp:datamodel-1-10"><model name="D">
<object name="Device.DeviceInfo." access="readOnly"><parameter name="SerialNumber"
access="readOnly"><syntax><string/><default type="object" value="S1"/></syntax></parameter></object>
</model></dm:document>)";
    std::ofstream(dir.File("product.json"))
        << R"({"objects":[{"path":"Device.X_LED.","parameters":[{"name":"State","type":"string",)"
           R"("access":"readWrite","default":"ON"}]}]})";
    const GatewayProcess gateway(
        OSTEL_GATEWAY, {"--model", dir.File("standard.xml"), "--model", dir.File("product.json")});
    TOstelApplication& app = *TOstelApplication::GetInstance();
    app.Initialize(OSTEL_CLI);
    TParams params;
    EXPECT_EQ(app.GetParam("Device.", params), RC_SUCCESS);
    ASSERT_EQ(params.size(), 2U);
    EXPECT_EQ(params[0].value, "S1");
    EXPECT_EQ(params[1].name, "Device.X_LED.State");
}

TEST(GatewayModels, AFaultyOneIsRefusedWithItsPlace) {
    TempDir dir;
    std::ofstream(dir.File("page.xml")) << "\n<html/>";
    const TFinished gateway =
        RunProgram({OSTEL_GATEWAY, "--state", dir.File("state"), "--model", dir.File("page.xml")});
    EXPECT_EQ(gateway.status, 1);
    EXPECT_EQ(gateway.errors, "ostel-gateway: " + dir.File("page.xml") +
                                  ":2: <html> is not a data-model document, which starts with "
                                  "<dm:document>\n");
}

}  // namespace
