#include "DataModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using TValues = TDataModel::TValues;
using TNames = std::vector<std::string>;

TParamDefinition Param(const std::string& name, const std::string& value, bool writable = true) {
    TParamDefinition definition;
    definition.name = name;
    definition.defaultValue = value;
    definition.writable = writable;
    return definition;
}

TSchema ASchema() {
    TSchema schema;
    schema.MakeObject("Device.").Define(Param("AB", "beside"));
    TObjectDefinition& a = schema.MakeObject("Device.A.");
    a.Define(Param("Fixed", "fixed", false));
    a.Define(Param("Number", "1"));
    a.parameters.back().type.base = TBaseType::INT;
    a.Define(Param("Text", "old"));
    schema.MakeObject("Device.Empty.");
    schema.MakeObject("Device.").Define(Param("HostNumberOfEntries", "0", false));
    TObjectDefinition& host = schema.MakeObject("Device.Host.{i}.");
    host.writable = true;
    host.entries = "HostNumberOfEntries";
    host.maxEntries = 5;
    host.uniqueKeys = {{"Name"}};
    host.Define(Param("Name", ""));
    host.indexMap = {{1, 7}, {10, 1}};
    TObjectDefinition& port = schema.MakeObject("Device.Host.{i}.Port.{i}.");
    port.writable = true;
    port.entries = "PortNumberOfEntries";
    port.Define(Param("Number", "0"));
    schema.MakeObject("Device.Host.{i}.").Define(Param("PortNumberOfEntries", "0", false));
    schema.MakeObject("Device.None.{i}.").Define(Param("Name", ""));
    for (const char* number : {"10", "1", "2"}) {
        schema.Seeds().push_back(
            {"a file", std::string("Device.Host.") + number + ".", {{"Name", number}}});
    }
    return schema;
}

class DataModel : public testing::Test {
protected:
    TValues Get(const std::string& name, tOstelReturnCode code = RC_SUCCESS) const {
        TValues values;
        EXPECT_EQ(m_Model.Get(name, values), code) << name;
        return values;
    }

    std::string Value(const std::string& name) const {
        const TValues values = Get(name);
        return values.empty() ? "not there" : values[0].second;
    }

    tOstelReturnCode Set(const std::string& name, const std::string& value) {
        return m_Model.Set({{name, value}});
    }

    std::vector<unsigned int> Ids(const std::string& table) const {
        std::vector<unsigned int> ids;
        EXPECT_EQ(m_Model.GetInstances(table, ids), RC_SUCCESS);
        return ids;
    }

    unsigned int Add(const std::string& table) {
        unsigned int id = 0;
        EXPECT_EQ(m_Model.Add(table, id), RC_SUCCESS);
        return id;
    }

    TDataModel m_Model{ASchema()};
};

TEST_F(DataModel, GivesOneParameter) {
    EXPECT_THAT(Get("Device.A.Text"), ElementsAre(Pair("Device.A.Text", "old")));
}

TEST_F(DataModel, GivesAllBelowAPartialPath) {
    EXPECT_THAT(Get("Device.A."),
                ElementsAre(Pair("Device.A.Fixed", "fixed"), Pair("Device.A.Number", "1"),
                            Pair("Device.A.Text", "old")));
    EXPECT_EQ(Get("Device.").size(), m_Model.Size());
}

TEST_F(DataModel, OrdersInstancesByTheirNumber) {
    EXPECT_THAT(Get("Device.Host.*.Name"),
                ElementsAre(Pair("Device.Host.1.Name", "1"), Pair("Device.Host.2.Name", "2"),
                            Pair("Device.Host.10.Name", "10")));
}

TEST_F(DataModel, MatchesOneElementWithAStar) {
    EXPECT_EQ(Get("Device.Host.*.Name").size(), 3U);
    EXPECT_EQ(Get("Device.*.Text").size(), 1U);
    EXPECT_EQ(Get("*.A.Text").size(), 1U);
    EXPECT_EQ(Get("Device.*.").size(), 9U);
    EXPECT_EQ(Get("Device.*").size(), 2U);
    EXPECT_EQ(Get("Device.Host.*.*").size(), 6U);
}

TEST_F(DataModel, KnowsObjectsThatHaveNoParameters) {
    EXPECT_THAT(Get("Device.Empty."), IsEmpty());
    for (const char* name : {"Device.None.", "Device.None.*.", "Device.None.*.Name",
                             "Device.Host.1.Port.*.Number", "Device.Host.*.Port.*.*"}) {
        EXPECT_THAT(Get(name), IsEmpty()) << name;
    }
}

TEST_F(DataModel, RefusesUnknownNames) {
    for (const char* name : {"",
                             ".",
                             "Device",
                             "Device.A",
                             "Device.X",
                             "Device.A.Text.",
                             "Device.X.",
                             "Device..",
                             "device.A.Text",
                             "Device.Host.3.Name",
                             "Device.Host.3.",
                             "Device.Host.*.Nam",
                             "Device.A.*.Name",
                             "*",
                             "Device.Host.*.Name.*",
                             "Device.Host.01.Name",
                             "Device.Host.1",
                             "Device.Host.*",
                             "Device.Host.{i}.Name",
                             "Device.None.*",
                             "Device.None.*.Nam",
                             "Device.Host.99999999999999999999.",
                             "Device.Host.1.Port.1.Number"}) {
        EXPECT_THAT(Get(name, RC_INVALID_PARAM_NAME), IsEmpty()) << name;
    }
}

TEST_F(DataModel, StagesAWriteUntilItIsCommitted) {
    EXPECT_EQ(Set("Device.A.Text", "new"), RC_SUCCESS);
    EXPECT_EQ(Set("Device.A.Number", "7"), RC_SUCCESS);
    EXPECT_EQ(Get("Device.A.Text")[0].second, "old");
    EXPECT_THAT(m_Model.Changes().writes,
                ElementsAre(Pair("Device.A.Number", "7"), Pair("Device.A.Text", "new")));
    m_Model.Commit();
    EXPECT_EQ(Get("Device.A.Text")[0].second, "new");
    EXPECT_TRUE(m_Model.Changes().Empty());
}

TEST_F(DataModel, ReportsOnlyWhatChanges) {
    Set("Device.A.Text", "new");
    Set("Device.A.Text", "old");
    EXPECT_TRUE(m_Model.Changes().Empty());
}

TEST_F(DataModel, RefusesWritesByTheirCodes) {
    EXPECT_EQ(Set("Device.A.X", "1"), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(Set("Device.A.", "1"), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(Set("Device.Host.*.Name", "1"), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(Set("Device.A.Fixed", "x"), RC_NOT_SUPPORTED);
    EXPECT_EQ(Set("Device.A.Number", "x"), RC_INVALID_PARAM_VALUE);
    EXPECT_TRUE(m_Model.Changes().Empty());
}

TEST_F(DataModel, RestoresOnlyWhatItsTypesAllow) {
    EXPECT_TRUE(m_Model.RestoreValue("Device.A.Fixed", "stored"));
    EXPECT_EQ(Get("Device.A.Fixed")[0].second, "stored");
    EXPECT_FALSE(m_Model.RestoreValue("Device.A.Number", "x"));
    EXPECT_FALSE(m_Model.RestoreValue("Device.Gone", "x"));
}

TEST_F(DataModel, AnArrayOfWritesIsStagedAsAWholeOrNotAtAll) {
    EXPECT_EQ(m_Model.Set({{"Device.A.Text", "new"}, {"Device.A.Number", "x"}}),
              RC_INVALID_PARAM_VALUE);
    EXPECT_TRUE(m_Model.Changes().Empty());
    EXPECT_EQ(m_Model.Set({{"Device.A.Text", "new"}, {"Device.A.Text", "newer"}}), RC_SUCCESS);
    EXPECT_THAT(m_Model.Changes().writes, ElementsAre(Pair("Device.A.Text", "newer")));
    EXPECT_EQ(m_Model.Set({}), RC_SUCCESS);
}

TEST_F(DataModel, CountsTheInstancesOfATable) {
    EXPECT_THAT(Ids("Device.Host."), ElementsAre(1, 2, 10));
    EXPECT_EQ(Value("Device.HostNumberOfEntries"), "3");
    EXPECT_THAT(Ids("Device.None."), IsEmpty());
    std::vector<unsigned int> ids;
    for (const char* path : {"Device.", "Device.Host", "Device.Host.1.", "Device.X.", ""}) {
        EXPECT_EQ(m_Model.GetInstances(path, ids), RC_INVALID_PARAM_NAME) << path;
    }
}

TEST_F(DataModel, TellsTheTreeBelowAnObject) {
    TNames names;
    EXPECT_EQ(m_Model.GetTree("Device.A.", names), RC_SUCCESS);
    EXPECT_THAT(names,
                ElementsAre("Device.A.", "Device.A.Fixed", "Device.A.Number", "Device.A.Text"));
    names.clear();
    EXPECT_EQ(m_Model.GetTree("Device.Host.2.", names), RC_SUCCESS);
    EXPECT_THAT(names, ElementsAre("Device.Host.2.", "Device.Host.2.Name",
                                   "Device.Host.2.PortNumberOfEntries", "Device.Host.2.Port."));
    for (const char* path : {"Device.A", "Device.A.Text", "Device.Host.3.", "Device.*.", ""}) {
        EXPECT_EQ(m_Model.GetTree(path, names), RC_INVALID_PARAM_NAME) << path;
    }
}

TEST_F(DataModel, AnAddedInstanceIsSeenAfterTheCommitOnly) {
    EXPECT_EQ(Add("Device.Host."), 11U);
    EXPECT_EQ(Set("Device.Host.11.Name", "new"), RC_SUCCESS);
    EXPECT_THAT(Ids("Device.Host."), ElementsAre(1, 2, 10));
    Get("Device.Host.11.Name", RC_INVALID_PARAM_NAME);
    EXPECT_EQ(Get("Device.Host.*.Name").size(), 3U);
    EXPECT_THAT(m_Model.Changes().added, ElementsAre("Device.Host.11."));
    EXPECT_THAT(m_Model.Commit(), ElementsAre(Pair("Device.Host.11.Name", "new"),
                                              Pair("Device.Host.11.PortNumberOfEntries", "0"),
                                              Pair("Device.HostNumberOfEntries", "4")));
    EXPECT_THAT(Ids("Device.Host."), ElementsAre(1, 2, 10, 11));
    EXPECT_TRUE(m_Model.Changes().Empty());
}

TEST_F(DataModel, InstancesAreAddedInsideOfAddedOnes) {
    Add("Device.Host.");
    EXPECT_EQ(Add("Device.Host.11.Port."), 1U);
    EXPECT_EQ(Set("Device.Host.11.Port.1.Number", "80"), RC_SUCCESS);
    m_Model.Commit();
    EXPECT_EQ(Value("Device.Host.11.Port.1.Number"), "80");
    EXPECT_EQ(Value("Device.Host.11.PortNumberOfEntries"), "1");
}

TEST_F(DataModel, AnAddedInstanceCountsTheInnerOnesThatItComesWith) {
    TSchema schema = ASchema();
    schema.MakeObject("Device.Host.{i}.Port.{i}.").minEntries = 2;
    m_Model = TDataModel(std::move(schema));
    EXPECT_EQ(Value("Device.Host.10.PortNumberOfEntries"), "2");
    Add("Device.Host.");
    m_Model.Commit();
    EXPECT_EQ(Value("Device.Host.11.PortNumberOfEntries"), "2");
    EXPECT_TRUE(m_Model.RestoreInstance("Device.Host.12.", true));
    EXPECT_EQ(Value("Device.Host.12.PortNumberOfEntries"), "2");
}

TEST_F(DataModel, ADeletedInstanceGoesAtTheCommit) {
    EXPECT_EQ(Set("Device.Host.2.Name", "lost"), RC_SUCCESS);
    EXPECT_EQ(Add("Device.Host.2.Port."), 1U);
    EXPECT_EQ(m_Model.Delete("Device.Host.2."), RC_SUCCESS);
    EXPECT_EQ(Value("Device.Host.2.Name"), "2");
    EXPECT_EQ(Set("Device.Host.2.Name", "x"), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_Model.Delete("Device.Host.2."), RC_INVALID_PARAM_NAME);
    EXPECT_THAT(m_Model.Commit(), ElementsAre(Pair("Device.HostNumberOfEntries", "2")));
    Get("Device.Host.2.", RC_INVALID_PARAM_NAME);
}

TEST_F(DataModel, NumbersAreNeverGivenTwice) {
    EXPECT_EQ(Add("Device.Host."), 11U);
    EXPECT_EQ(m_Model.Delete("Device.Host.11."), RC_SUCCESS);
    EXPECT_TRUE(m_Model.Changes().Empty());
    EXPECT_EQ(Add("Device.Host."), 12U);
    m_Model.Commit();
    EXPECT_EQ(m_Model.Delete("Device.Host.12."), RC_SUCCESS);
    m_Model.Commit();
    EXPECT_EQ(Add("Device.Host."), 13U);
}

TEST_F(DataModel, OneInstanceComesAndOneGoesInOneCommit) {
    Add("Device.Host.");
    EXPECT_EQ(m_Model.Delete("Device.Host.1."), RC_SUCCESS);
    EXPECT_THAT(m_Model.Commit(), ElementsAre(Pair("Device.Host.11.Name", ""),
                                              Pair("Device.Host.11.PortNumberOfEntries", "0")));
    EXPECT_THAT(Ids("Device.Host."), ElementsAre(2, 10, 11));
}

TEST_F(DataModel, RefusesWhatATableDoesNotAllow) {
    unsigned int id = 0;
    for (const char* path : {"Device.", "Device.A.", "Device.Host", "Device.Host.1.", "", "."}) {
        EXPECT_EQ(m_Model.Add(path, id), RC_INVALID_PARAM_NAME) << path;
    }
    for (const char* path :
         {"Device.", "Device.Host.", "Device.Host.3.", "Device.Host.1.Name", "Device.Host.*."}) {
        EXPECT_EQ(m_Model.Delete(path), RC_INVALID_PARAM_NAME) << path;
    }
    EXPECT_EQ(m_Model.Add("Device.None.", id), RC_NOT_SUPPORTED);
    Add("Device.Host.");
    Add("Device.Host.");
    EXPECT_EQ(m_Model.Add("Device.Host.", id), RC_BUFFER_OVERFLOW);
    EXPECT_EQ(m_Model.Delete("Device.Host.1."), RC_SUCCESS);
    EXPECT_EQ(Add("Device.Host."), 13U);
}

TEST_F(DataModel, KeepsTheLeastNumberOfInstances) {
    TSchema schema;
    TObjectDefinition& table = schema.MakeObject("T.{i}.");
    table.writable = true;
    table.minEntries = 2;
    TDataModel model(std::move(schema));
    std::vector<unsigned int> ids;
    EXPECT_EQ(model.GetInstances("T.", ids), RC_SUCCESS);
    EXPECT_THAT(ids, ElementsAre(1, 2));
    EXPECT_EQ(model.Delete("T.1."), RC_NOT_SUPPORTED);
}

TEST_F(DataModel, KeysStayUnique) {
    EXPECT_EQ(Set("Device.Host.1.Name", "2"), RC_INVALID_PARAM_VALUE);
    EXPECT_TRUE(m_Model.Changes().Empty());
    EXPECT_EQ(Set("Device.Host.1.Name", "1"), RC_SUCCESS);
    EXPECT_EQ(Set("Device.Host.1.Name", ""), RC_SUCCESS);
    EXPECT_EQ(Set("Device.Host.2.Name", ""), RC_SUCCESS);
    // Against what is staged, not what is committed.
    EXPECT_EQ(Set("Device.Host.10.Name", "2"), RC_SUCCESS);
    EXPECT_EQ(Set("Device.Host.2.Name", "2"), RC_INVALID_PARAM_VALUE);
    EXPECT_THAT(m_Model.Changes().writes,
                ElementsAre(Pair("Device.Host.1.Name", ""), Pair("Device.Host.2.Name", ""),
                            Pair("Device.Host.10.Name", "2")));
}

TEST_F(DataModel, TwoInstancesExchangeTheirKeysInOneRequest) {
    EXPECT_EQ(m_Model.Set({{"Device.Host.1.Name", "2"}, {"Device.Host.2.Name", "1"}}), RC_SUCCESS);
}

TEST_F(DataModel, MapsInstancesToThePlatformsNumbers) {
    Add("Device.Host.");
    TDataModel::TIndexMap before;
    EXPECT_EQ(m_Model.GetIndexMap(before), RC_SUCCESS);
    ASSERT_EQ(before.size(), 1U);
    EXPECT_EQ(before[0].first, "Device.Host.");
    EXPECT_THAT(before[0].second, ElementsAre(Pair(1, 7), Pair(2, 2), Pair(10, 1)));
    EXPECT_EQ(m_Model.Delete("Device.Host.1."), RC_SUCCESS);
    m_Model.Commit();
    TDataModel::TIndexMap after;
    EXPECT_EQ(m_Model.GetIndexMap(after), RC_SUCCESS);
    EXPECT_THAT(after.at(0).second, ElementsAre(Pair(2, 2), Pair(10, 1), Pair(11, 11)));
}

TEST_F(DataModel, AnIndexMapHasTheLimitOfAnAnswer) {
    TSchema schema;
    schema.MakeObject("T.{i}." + std::string(1 << 20, 'U') + ".{i}.").indexMap = {{1, 2}};
    const TDataModel model(std::move(schema), 40);
    TDataModel::TIndexMap map;
    EXPECT_EQ(model.GetIndexMap(map), RC_BUFFER_OVERFLOW);
    EXPECT_LE(map.size(), 33U);
}

// The instances that the platform does not number are none of the answer's.
TEST_F(DataModel, AnIndexMapIsWholeHoweverLargeTheModelIs) {
    TSchema schema;
    schema.MakeObject("T.{i}." + std::string(1 << 20, 'U') + ".{i}.");
    schema.MakeObject("V.{i}.").indexMap = {{1, 2}};
    const TDataModel model(std::move(schema), 40);
    TDataModel::TIndexMap map;
    EXPECT_EQ(model.GetIndexMap(map), RC_SUCCESS);
    ASSERT_EQ(map.size(), 1U);
    EXPECT_EQ(map[0].second.size(), 40U);
}

TEST(EmptyDataModel, HasAnEmptyIndexMap) {
    TDataModel::TIndexMap map;
    EXPECT_EQ(TDataModel(TSchema()).GetIndexMap(map), RC_SUCCESS);
    EXPECT_TRUE(map.empty());
}

TEST_F(DataModel, HasTheObjectsThatAreStaged) {
    Add("Device.Host.");
    EXPECT_EQ(m_Model.Delete("Device.Host.1."), RC_SUCCESS);
    EXPECT_TRUE(m_Model.HasObject("Device.Host."));
    EXPECT_TRUE(m_Model.HasObject("Device.Host.11."));
    EXPECT_FALSE(m_Model.HasObject("Device.Host.1."));
    EXPECT_FALSE(m_Model.HasObject("Device.A.Text"));
}

TEST_F(DataModel, RestoresInstances) {
    EXPECT_TRUE(m_Model.RestoreInstance("Device.Host.2.", false));
    EXPECT_TRUE(m_Model.RestoreInstance("Device.Host.12.", true));
    EXPECT_TRUE(m_Model.RestoreInstance("Device.Host.15.", false));
    EXPECT_TRUE(m_Model.RestoreInstance("Device.Host.12.Port.3.", true));
    EXPECT_THAT(Ids("Device.Host."), ElementsAre(1, 10, 12));
    EXPECT_EQ(Value("Device.HostNumberOfEntries"), "3");
    EXPECT_EQ(Value("Device.Host.12.PortNumberOfEntries"), "1");
    EXPECT_EQ(Add("Device.Host."), 16U);
    for (const char* path :
         {"Device.Host.2.Port.1.", "Device.Host.x.", "Device.A.1.", "", "x", "Device.Host.0."}) {
        EXPECT_FALSE(m_Model.RestoreInstance(path, true)) << path;
    }
}

TEST_F(DataModel, FillsEveryTableAsFarAsItMayBe) {
    const TDataModel model(ASchema(), 4);
    std::vector<unsigned int> ids;
    EXPECT_EQ(model.GetInstances("Device.Host.", ids), RC_SUCCESS);
    EXPECT_THAT(ids, ElementsAre(1, 2, 10, 11));
    TValues values;
    EXPECT_EQ(model.Get("Device.Host.*.Port.*.Number", values), RC_SUCCESS);
    EXPECT_EQ(values.size(), 16U);
    const TDataModel full(ASchema(), 10);
    ids.clear();
    EXPECT_EQ(full.GetInstances("Device.Host.", ids), RC_SUCCESS);
    EXPECT_EQ(ids.size(), 5U);
}

TEST_F(DataModel, AnAnswerHasALimit) {
    const std::string megabyte(1 << 20, 'x');
    TSchema schema;
    schema.MakeObject("T.{i}.").Define(Param("V", megabyte));
    const TDataModel model(std::move(schema), 40);
    TValues values;
    EXPECT_EQ(model.Get("T.", values), RC_BUFFER_OVERFLOW);
    EXPECT_LE(values.size(), 33U);
    values.clear();
    EXPECT_EQ(model.Get("T.40.V", values), RC_SUCCESS);
    values.clear();
    EXPECT_EQ(model.Get(TNames(1000, "T.1.V"), values), RC_BUFFER_OVERFLOW);
    EXPECT_LE(values.size(), 33U);
}

TEST_F(DataModel, GivesAllOfSeveralNamesUpToTheFirstThatIsWrong) {
    TValues values;
    EXPECT_EQ(m_Model.Get(TNames{"Device.A.Text", "Device.AB", "Device.A.Text"}, values),
              RC_SUCCESS);
    EXPECT_THAT(values, ElementsAre(Pair("Device.A.Text", "old"), Pair("Device.AB", "beside"),
                                    Pair("Device.A.Text", "old")));
    values.clear();
    EXPECT_EQ(m_Model.Get(TNames{"Device.AB", "Device.X", "Device.AB"}, values),
              RC_INVALID_PARAM_NAME);
    EXPECT_THAT(values, ElementsAre(Pair("Device.AB", "beside")));
    EXPECT_EQ(m_Model.Get(TNames{}, values), RC_SUCCESS);
}

TEST_F(DataModel, RefusesInstancesThatCannotBe) {
    const TSchema::TSeed seeds[] = {
        {"a file", "Device.A.1.", {}},
        {"a file", "Device.Host.x.", {}},
        {"a file", "Device.Host.1.Port.1.Deep.2.", {}},
        {"a file", "Device.Host.3.", {{"X", "1"}}},
        {"a file", "Device.None.3.Port.1.", {}},
    };
    for (const TSchema::TSeed& seed : seeds) {
        TSchema schema = ASchema();
        schema.Seeds().push_back(seed);
        EXPECT_THROW(TDataModel(std::move(schema)), std::runtime_error) << seed.path;
    }
}

}  // namespace
