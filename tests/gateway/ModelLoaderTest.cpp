#include "ModelLoader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "DataModel.h"
#include "TempDir.h"

namespace {

using testing::HasSubstr;

class ModelLoader : public testing::Test {
protected:
    // What the loading or the building complained of.
    std::string Load(const std::string& text) {
        std::ofstream(m_Dir.File("model.json")) << text;
        try {
            TSchema schema;
            LoadModel(m_Dir.File("model.json"), schema);
            m_Model = TDataModel(std::move(schema));
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    // A model of one object with one parameter, whose members these are.
    std::string LoadParameter(const std::string& members) {
        return Load(R"({"objects":[{"path":"Device.","parameters":[{)" + members + "}]}]}");
    }

    std::string Value(const std::string& name) const {
        TDataModel::TValues values;
        return m_Model.Get(name, values) == RC_SUCCESS && values.size() == 1 ? values[0].second
                                                                             : "not there";
    }

    TempDir m_Dir;
    TDataModel m_Model{TSchema()};
};

TEST_F(ModelLoader, TakesParametersWithTheirDefaults) {
    EXPECT_EQ(LoadParameter(R"("name":"A","type":"boolean","access":"readWrite","default":"1")"),
              "");
    EXPECT_EQ(Value("Device.A"), "true");
    EXPECT_EQ(m_Model.Set({{"Device.A", "false"}}), RC_SUCCESS);
}

TEST_F(ModelLoader, TakesRangesToTheLastDigit) {
    if (!TParamType::RANGES_ARE_EXACT) {
        GTEST_SKIP() << "no type of this processor holds 64 bits and a fraction";
    }
    EXPECT_EQ(LoadParameter(R"("name":"A","type":"long","access":"readWrite","default":"0",)"
                            R"("maximum":9007199254740993)"),
              "");
    EXPECT_EQ(m_Model.Set({{"Device.A", "9007199254740994"}}), RC_INVALID_PARAM_VALUE);
    EXPECT_EQ(m_Model.Set({{"Device.A", "9007199254740993"}}), RC_SUCCESS);
    EXPECT_EQ(LoadParameter(R"("name":"A","type":"decimal","access":"readWrite","default":"0.1",)"
                            R"("minimum":0.1,"maximum":0.3)"),
              "");
    EXPECT_EQ(m_Model.Set({{"Device.A", "0.3"}}), RC_SUCCESS);
}

TEST_F(ModelLoader, TakesInstancesOfNestedTables) {
    EXPECT_EQ(Load(R"({"objects":[
        {"path":"D.T.{i}.","access":"readWrite","entries":"TNumberOfEntries",
         "parameters":[{"name":"N","type":"string","access":"readOnly","default":"d"}],
         "instances":[{"id":1,"values":{"N":"one"}},{"id":12,"values":{}}]},
        {"path":"D.T.{i}.U.{i}.","access":"readOnly","entries":"UNumberOfEntries",
         "parameters":[{"name":"M","type":"string","access":"readOnly","default":"d"}],
         "instances":[{"id":3,"parent":[12],"values":{"M":"deep"}}]}]})"),
              "");
    EXPECT_EQ(Value("D.T.1.N"), "one");
    EXPECT_EQ(Value("D.T.12.N"), "d");
    EXPECT_EQ(Value("D.T.12.U.3.M"), "deep");
}

TEST_F(ModelLoader, TakesValuesOfObjectsInsideOfInstances) {
    EXPECT_EQ(Load(R"({"objects":[
        {"path":"D.T.{i}.","instances":[{"id":4}]},
        {"path":"D.T.{i}.Stats.",
         "parameters":[{"name":"Bytes","type":"int","access":"readOnly","default":"0"}],
         "instances":[{"id":4,"values":{"Bytes":"99"}}]}]})"),
              "");
    EXPECT_EQ(Value("D.T.4.Stats.Bytes"), "99");
}

TEST_F(ModelLoader, NamesFilePlaceAndCauseOfAFault) {
    const struct {
        const char* text;
        const char* cause;
    } cases[] = {
        {"", "line"},
        {"[]", "\"objects\" is missing"},
        {"{\"objects\":[1]}", "\"objects\" is missing"},
        {R"({"objects":[{"path":"Device"}]})", "Device: a path ends in a point"},
        {R"({"objects":[{"path":5}]})", "\"path\" is missing or not a text"},
        {R"({"objects":[{"path":"D.","parameters":5}]})", "\"parameters\" is not an array"},
        {R"({"objects":[{"path":"D.T.{i}.","instances":[{"id":0}]}]})", "no valid number"},
        {R"({"objects":[{"path":"D.T.{i}.","instances":[{"id":4294967297}]}]})", "no valid number"},
        {R"({"objects":[{"path":"D.T.{i}.","instances":[{"id":2147483648}]}]})", "no valid number"},
        {R"({"objects":[{"path":"D.T.{i}.U.{i}.","instances":[{"id":1}]}]})",
         "lacks the numbers of its parents"},
        {R"({"objects":[{"path":"D.T.{i}.","instances":[{"id":1}]},{"path":"D.T.{i}.U.{i}.",
            "instances":[{"id":1,"parent":[4294967297]}]}]})",
         "no valid number"},
        {R"({"objects":[{"path":"D.T.{i}.","instances":[{"id":1,"values":{"X":"1"}}]}]})",
         "D.T.1.X has a value but no definition"},
        {R"({"objects":[{"path":"D.T.{i}.","instances":[{"id":1,"values":{"X":1}}]}]})",
         "\"X\" is missing or not a text"},
        {R"({"objects":[{"path":"D.T.{i}.","instances":[{"id":1,"values":["X"]}]}]})",
         "\"values\" is not an object"},
        {R"({"objects":[{"path":"D.T.{i}.","minEntries":2,"maxEntries":1}]})",
         "\"minEntries\" is above \"maxEntries\""},
        {R"({"objects":[{"path":"D.T.{i}.","uniqueKeys":[{"parameters":"K"}]}]})",
         "\"parameters\" is not an array of texts"},
        {R"({"objects":[{"path":"D.T.{i}.U.{i}.","instances":[{"id":1,"parent":[2]}]}]})",
         "there is no place for the instance D.T.2.U.1."},
        {R"({"objects":[{"path":"D.T.{i}."},{"path":"D.T."}]})",
         "\"T\" is a table here and an object there"},
        {R"({"objects":[{"path":"D.*.T."}]})", "\"*\" is not an object's name"},
        {R"({"objects":[{"path":"D..T."}]})", "\"\" is not an object's name"},
        {R"({"objects":[{"path":"D.T.{i}.","uniqueKeys":[{"parameters":["K"]}]}]})",
         "a unique key names no parameter: \"K\""},
        {R"({"objects":[{"path":"D.T.{i}.","indexMap":[{"app":1}]}]})", "no valid number"},
        {R"({"objects":[{"path":"D.T.{i}.","indexMap":[{"app":4294967297,"platform":1}]}]})",
         "no valid number"},
        {R"({"objects":[{"path":"D.T.{i}.","indexMap":[{"app":1,"platform":4294967297}]}]})",
         "no valid number"},
        {R"({"objects":[{"path":"D.T.{i}.","minEntries":1.5}]})", "is not a whole number"},
        {R"({"objects":[{"path":"D.T.{i}.","maxEntries":"many"}]})", "is not a number"},
    };
    for (const auto& one : cases) {
        const std::string message = Load(one.text);
        EXPECT_THAT(message, HasSubstr(one.cause)) << one.text;
        EXPECT_THAT(message, HasSubstr("model.json")) << one.text;
    }
}

TEST_F(ModelLoader, RefusesFaultyParameters) {
    const struct {
        std::string members;
        const char* cause;
    } cases[] = {
        {R"("type":"string","access":"readOnly","default":"")", "\"name\" is missing"},
        {R"("name":"A.B","type":"string","access":"readOnly","default":"")",
         "not a parameter name"},
        {R"("name":"A","type":"text","access":"readOnly","default":"")", "unknown type \"text\""},
        {R"("name":"A","type":"string","access":"rw","default":"")", "\"access\" is neither"},
        {R"("name":"A","type":"string","access":"readOnly")", "\"default\" is missing"},
        {R"("name":"A","type":"int","access":"readOnly","default":"x")",
         "does not allow the default"},
        {R"("name":"A","type":"int","access":"readOnly","default":"5","maximum":4)",
         "does not allow the default"},
        {R"("name":"A","type":"int","access":"readOnly","default":"5","maximum":"4")",
         "\"maximum\" is not a number"},
        {R"("name":"A","type":"string","access":"readOnly","default":"","maxLength":-1)",
         "\"maxLength\" is out of range"},
        {R"("name":"A","type":"string","access":"readOnly","default":"","enumeration":[1,2])",
         "\"enumeration\" is not an array of texts"},
        {R"("name":"A","type":"string","access":"readOnly","default":"","enumeration":"ON")",
         "\"enumeration\" is not an array of texts"},
        {R"("name":"A","type":"string","access":"readOnly","default":"","pattern":"[")",
         "not a regular expression"},
        {R"("name":"A","type":"string","access":"readOnly","default":"","pattern":")" +
             std::string(1000000, '(') + std::string(1000000, ')') + '"',
         "not a regular expression"},
        {R"("name":"A","type":"string","access":"readOnly","default":""},
            {"name":"A","type":"string","access":"readOnly","default":"")",
         "Device.A is there twice"},
    };
    for (const auto& one : cases) {
        EXPECT_THAT(LoadParameter(one.members), HasSubstr(one.cause)) << one.members;
    }
}

TEST_F(ModelLoader, LaysFilesOverEachOther) {
    std::ofstream(m_Dir.File("base.json")) << R"({"objects":[
        {"path":"D.","parameters":[
         {"name":"A","type":"string","access":"readOnly","default":"base"},
         {"name":"B","type":"string","access":"readOnly","default":"base"}]},
        {"path":"D.T.{i}.","instances":[{"id":1}]}]})";
    std::ofstream(m_Dir.File("product.json")) << R"({"objects":[
        {"path":"D.","parameters":[
         {"name":"B","type":"string","access":"readWrite","default":"product"}]},
        {"path":"D.T.{i}.","access":"readWrite","parameters":[
         {"name":"N","type":"string","access":"readOnly","default":"new"}],
         "instances":[{"id":2}]}]})";
    TSchema schema;
    LoadModel(m_Dir.File("base.json"), schema);
    LoadModel(m_Dir.File("product.json"), schema);
    m_Model = TDataModel(std::move(schema));
    EXPECT_EQ(Value("D.A"), "base");
    EXPECT_EQ(Value("D.B"), "product");
    EXPECT_EQ(Value("D.T.1.N"), "new");
    EXPECT_EQ(Value("D.T.2.N"), "new");
    unsigned int id = 0;
    EXPECT_EQ(m_Model.Add("D.T.", id), RC_SUCCESS);
}

TEST_F(ModelLoader, RefusesPathsThatAreTooDeepToWalk) {
    std::string path = "D.";
    for (int i = 1; i < 64; ++i) {
        path += "A.";
    }
    EXPECT_EQ(Load(R"({"objects":[{"path":")" + path + R"("}]})"), "");
    EXPECT_THAT(Load(R"({"objects":[{"path":")" + path + R"(A."}]})"),
                HasSubstr("a path has at most 64 elements"));
    for (int i = 0; i < 12; ++i) {
        path += path;
    }
    EXPECT_THAT(Load(R"({"objects":[{"path":")" + path + R"("}]})"),
                HasSubstr("a path has at most 64 elements"));
}

TEST_F(ModelLoader, RefusesModelsThatAskForMoreInstancesThanFit) {
    EXPECT_THAT(Load(R"({"objects":[{"path":"D.T.{i}.","minEntries":2147483647}]})"),
                HasSubstr("the model asks for too many instances"));
    EXPECT_THAT(Load(R"({"objects":[{"path":"D.T.{i}.","minEntries":1000},
                                    {"path":"D.T.{i}.U.{i}.","minEntries":1000},
                                    {"path":"D.T.{i}.U.{i}.V.{i}.","minEntries":1000}]})"),
                HasSubstr("the model asks for too many instances"));
    EXPECT_THAT(Load(R"({"objects":[{"path":"D.T.{i}.","instances":[{"id":1},{"id":2},{"id":3}]},
                                    {"path":"D.T.{i}.U.{i}.","minEntries":5000000}]})"),
                HasSubstr("the model asks for too many instances"));
    // Their sum is more than a number of 32 bits can hold, and would begin at 0 again.
    std::string tables = R"({"path":"D."})";
    for (int i = 0; i < 859; ++i) {
        tables += R"(,{"path":"D.T)" + std::to_string(i) + R"(.{i}.","minEntries":5000000})";
    }
    EXPECT_THAT(Load(R"({"objects":[)" + tables + "]}"),
                HasSubstr("the model asks for too many instances"));
    // The table may be empty now, but the first instance that is added would be too large.
    EXPECT_THAT(Load(R"({"objects":[{"path":"D.T.{i}.","access":"readWrite"},
                                    {"path":"D.T.{i}.U.{i}.","minEntries":10000000}]})"),
                HasSubstr("the model asks for too many instances"));
}

TEST_F(ModelLoader, SaysThatAFileCannotBeRead) {
    TSchema schema;
    const TempDir dir;
    for (const auto& [path, cause] :
         {std::pair(std::string("/nonexistent.json"), "No such file or directory"),
          std::pair(dir.File("."), "Is a directory")}) {
        try {
            LoadModel(path, schema);
            ADD_FAILURE() << path;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), path + ": " + cause);
        }
    }
}

TEST_F(ModelLoader, TheHomeGatewayHasAtLeast400Parameters) {
    TSchema schema;
    LoadModel(OSTEL_HOME_GATEWAY_MODEL, schema);
    m_Model = TDataModel(std::move(schema));
    EXPECT_GE(m_Model.Size(), 400U);
    for (const char* name :
         {"Device.DeviceInfo.AdditionalSoftwareVersion",
          "Device.DeviceInfo.X_KAVEN_COM_CMAddress",
          "Device.DeviceInfo.X_KAVEN_COM_DeviceCondition",
          "Device.DeviceInfo.X_KAVEN_COM_DeviceIdProp1Hash",
          "Device.X_KAVEN_COM_General.SystemState.DeviceMode",
          "Device.DeviceInfo.FirstUseDate",
          "Device.DeviceInfo.HardwareVersion",
          "Device.DeviceInfo.X_KAVEN_COM_ManagedDevice",
          "Device.DeviceInfo.Manufacturer",
          "Device.DeviceInfo.ModelName",
          "Device.X_KAVEN_COM_General.DeviceMode_Control.DeviceMode",
          "Device.DeviceInfo.ManufacturerOUI",
          "Device.X_KAVEN_COM_General.Storage.PersistentPath",
          "Device.DeviceInfo.ProductClass",
          "Device.X_KAVEN_COM_General.SystemState.ProfileSynced",
          "Device.DeviceInfo.SerialNumber",
          "Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateLastCheckTime",
          "Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateCompletionPercentage",
          "Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateStatus",
          "Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateURL",
          "Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateVersion",
          "Device.DeviceInfo.SoftwareVersion",
          "Device.X_KAVEN_COM_General.Storage.TemporaryPath",
          "Device.DeviceInfo.UpTime",
          "Device.DeviceInfo.X_KAVEN_COM_WANAddress",
          "Device.DeviceInfo.X_KAVEN_COM_WANMAC",
          "Device.X_KAVEN_COM_General.LED.State",
          "Device.X_KAVEN_COM_Applications.OstelManager.Logging.Level",
          "Device.X_KAVEN_COM_Applications.HealthMonitor.Logging.DestinationLevel"}) {
        EXPECT_NE(Value(name), "not there") << name;
    }
}

}  // namespace
