#include "XmlModelLoader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <fstream>
#include <iostream>

#include "DataModel.h"
#include "FullModel.h"
#include "ModelLoader.h"
#include "TempDir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const std::string HEAD =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<dm:document xmlns:dm=\"urn:broadband-forum-org:cwmp:datamodel-1-10\" spec=\"urn:test\">\n";
const std::string TAIL = "</dm:document>\n";

class XmlModelLoader : public testing::Test {
protected:
    std::string LoadText(const std::string& text) {
        std::ofstream(m_Dir.File("model.xml")) << text;
        try {
            TSchema schema;
            LoadModel(m_Dir.File("model.xml"), schema);
            m_Model = TDataModel(std::move(schema));
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    std::string LoadModelOf(const std::string& objects, const std::string& types = "") {
        return LoadText(HEAD + types + "<model name=\"Device:2.15\">\n" + objects + "</model>\n" +
                        TAIL);
    }

    // One object with a parameter of this syntax.
    std::string LoadSyntax(const std::string& syntax, const std::string& types = "") {
        return LoadModelOf(
            "<object name=\"D.\" access=\"readOnly\"><parameter name=\"P\" "
            "access=\"readWrite\"><syntax>" +
                syntax + "</syntax></parameter></object>",
            types);
    }

    std::string Value(const std::string& name) const {
        TDataModel::TValues values;
        return m_Model.Get(name, values) == RC_SUCCESS && values.size() == 1 ? values[0].second
                                                                             : "not there";
    }

    bool Allows(const std::string& value) { return m_Model.Set({{"D.P", value}}) == RC_SUCCESS; }

    TempDir m_Dir;
    TDataModel m_Model{TSchema()};
};

TEST_F(XmlModelLoader, TakesObjectsTablesAndDefaults) {
    EXPECT_EQ(LoadModelOf(R"(
      <object name="Device." access="readOnly" minEntries="1" maxEntries="1">
        <description>The root.</description>
        <parameter name="HostNumberOfEntries" access="readOnly">
          <syntax><unsignedInt/></syntax></parameter>
        <parameter name="Name" access="readWrite">
          <syntax><string><size maxLength="8"/></string>
          <default type="factory" value="gate"/></syntax></parameter>
      </object>
      <object name="Device.Host.{i}." access="readWrite" minEntries="0" maxEntries="3"
              numEntriesParameter="HostNumberOfEntries">
        <uniqueKey><parameter ref="Alias"/></uniqueKey>
        <uniqueKey><parameter ref="Gone"/><parameter ref="Alias"/></uniqueKey>
        <parameter name="Alias" access="readWrite"><syntax><string/></syntax></parameter>
        <parameter name="Enable" access="readWrite">
          <syntax><boolean/><default type="object" value="1"/></syntax></parameter>
      </object>
      <object name="Device.Fixed.{i}." access="readOnly" minEntries="2" maxEntries="2">
        <parameter name="Id" access="readOnly"><syntax><int/></syntax></parameter>
      </object>)"),
              "");
    EXPECT_EQ(Value("Device.Name"), "gate");
    EXPECT_EQ(Value("Device.HostNumberOfEntries"), "0");
    EXPECT_EQ(Value("Device.Fixed.2.Id"), "0");
    unsigned int id = 0;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(m_Model.Add("Device.Host.", id), RC_SUCCESS);
    }
    EXPECT_EQ(m_Model.Add("Device.Host.", id), RC_BUFFER_OVERFLOW);
    EXPECT_EQ(m_Model.Add("Device.Fixed.", id), RC_NOT_SUPPORTED);
    EXPECT_EQ(m_Model.Set({{"Device.Host.1.Alias", "a"}}), RC_SUCCESS);
    EXPECT_EQ(m_Model.Set({{"Device.Host.2.Alias", "a"}}), RC_INVALID_PARAM_VALUE);
    EXPECT_EQ(m_Model.Set({{"Device.Name", "too long a name"}}), RC_INVALID_PARAM_VALUE);
    m_Model.Commit();
    EXPECT_EQ(Value("Device.HostNumberOfEntries"), "3");
    EXPECT_EQ(Value("Device.Host.1.Enable"), "true");
}

TEST_F(XmlModelLoader, LeavesOutWhatIsDeprecatedOrDeleted) {
    EXPECT_EQ(LoadModelOf(R"(
      <object name="D." access="readOnly">
        <parameter name="Here" access="readOnly"><syntax><int/></syntax></parameter>
        <parameter name="Old" access="readOnly" status="deprecated"><syntax><int/></syntax></parameter>
        <parameter name="Older" access="readOnly" status="obsoleted"><syntax><int/></syntax></parameter>
        <parameter name="Gone" access="readOnly" status="deleted"><syntax><int/></syntax></parameter>
        <parameter name="Choice" access="readOnly"><syntax><string>
          <enumeration value="Old" status="deprecated"/><enumeration value="New"/>
          </string></syntax></parameter>
      </object>
      <object name="D.Old." access="readOnly" status="deprecated"/>
      <object name="D.Old.Inside." access="readOnly">
        <parameter name="P" access="readOnly"><syntax><int/></syntax></parameter></object>)"),
              "");
    EXPECT_EQ(m_Model.Size(), 2U);
    EXPECT_EQ(Value("D.Choice"), "New");
    std::vector<std::string> names;
    EXPECT_EQ(m_Model.GetTree("D.", names), RC_SUCCESS);
    EXPECT_THAT(names, ElementsAre("D.", "D.Here", "D.Choice"));
}

TEST_F(XmlModelLoader, TakesUspModelsToo) {
    EXPECT_EQ(LoadText(R"xml(<?xml version="1.0"?>
<dm:document xmlns:dm="urn:broadband-forum-org:usp:datamodel-1-5">
  <model name="Device:2.15">
    <object name="Device.LocalAgent." access="readOnly" minEntries="1" maxEntries="1">
      <parameter name="EndpointID" access="readOnly"><syntax><string/></syntax></parameter>
      <command name="AddCertificate()" async="true"><input><argument name="Alias"><syntax>
        <string/></syntax></argument></input></command>
      <event name="TransferComplete!"><parameter name="Command"><syntax><string/></syntax>
        </parameter></event>
    </object>
    <object name="Device.LocalAgent.Controller.{i}." access="readWrite" minEntries="0"
            maxEntries="unbounded">
      <parameter name="EndpointID" access="writeOnceReadOnly"><syntax><string/></syntax></parameter>
    </object>
  </model>
</dm:document>)xml"),
              "");
    EXPECT_EQ(m_Model.Size(), 1U);
    unsigned int id = 0;
    EXPECT_EQ(m_Model.Add("Device.LocalAgent.Controller.", id), RC_SUCCESS);
    EXPECT_EQ(m_Model.Set({{"Device.LocalAgent.Controller.1.EndpointID", "x"}}), RC_SUCCESS);
}

TEST_F(XmlModelLoader, HoldsValuesToTheirTypes) {
    const std::string types = R"(
      <dataType name="IPAddress"><string><size maxLength="45"/></string></dataType>
      <dataType name="IPv4Address" base="IPAddress"><pattern value=""/>
        <pattern value="((25[0-5]|2[0-4][0-9]|[01]?[0-9]?[0-9])\.){3}[0-9]+"/></dataType>
      <dataType name="LanAddress" base="IPv4Address"><pattern value="192\.168\.[0-9.]+"/></dataType>
      <dataType name="StatsCounter32" base="_Counter"/>
      <dataType name="_Counter"><unsignedInt/></dataType>
      <dataType name="Names"><list><size maxLength="10"/></list><string><size maxLength="3"/>
        </string></dataType>)";
    const struct {
        const char* syntax;
        const char* first;
        std::vector<std::string> allowed;
        std::vector<std::string> refused;
    } cases[] = {
        {"<string/>", "", {"x"}, {}},
        {"<boolean/>", "false", {"true"}, {"yes"}},
        {"<int/>", "0", {"-5"}, {"x", "2147483648"}},
        {"<unsignedInt/>", "0", {"5"}, {"-5"}},
        {"<long/>", "0", {"9223372036854775807"}, {"1.5"}},
        {"<unsignedLong/>", "0", {"18446744073709551615"}, {"-1"}},
        {"<decimal/>", "0", {"1.5"}, {"x"}},
        {"<dateTime/>", "0001-01-01T00:00:00Z", {"2026-01-15T09:30:00Z"}, {""}},
        {"<base64/>", "", {"QQ=="}, {"Q"}},
        {"<hexBinary><size minLength=\"2\" maxLength=\"2\"/></hexBinary>",
         "0000",
         {"0aFf"},
         {"0a"}},
        {"<int><range minInclusive=\"1\" maxInclusive=\"2\"/><range minInclusive=\"9\"/></int>",
         "1",
         {"2", "9"},
         {"0", "3", "8"}},
        {"<long><range minInclusive=\"-9007199254740993\"/></long>",
         "0",
         {"-9007199254740993"},
         {"-9007199254740994"}},
        {"<decimal><range minInclusive=\"0.1\" maxInclusive=\"3\"/></decimal>",
         "3",
         {"0.1"},
         {"0.0999999", "3.1"}},
        {"<string><size minLength=\"1\" maxLength=\"2\"/><size minLength=\"5\"/></string>",
         "0",
         {"ab", "abcde"},
         {"", "abc"}},
        {"<string><enumeration value=\"A\"/><enumeration value=\"B\"/></string>",
         "A",
         {"B"},
         {"C"}},
        {"<string><pattern value=\"[a-c]{2}\"/></string>", "aa", {"bc"}, {"b", "cd"}},
        {"<dataType ref=\"IPAddress\"/>", "", {"::1"}, {std::string(46, '1')}},
        {"<dataType ref=\"IPv4Address\"/>", "", {"10.0.0.1"}, {"x"}},
        {"<dataType ref=\"LanAddress\"/><default type=\"object\" value=\"192.168.1.1\"/>",
         "192.168.1.1",
         {"192.168.0.9"},
         {"10.0.0.1", ""}},
        {"<dataType ref=\"StatsCounter32\"/>", "0", {"7"}, {"-1"}},
        {"<dataType ref=\"IPAddress\"><size maxLength=\"3\"/></dataType>", "", {"::1"}, {"::12"}},
        {"<list maxItems=\"2\"/><int/>", "", {"1,2", ""}, {"1,2,3", "x"}},
        {"<list minItems=\"2\"><size maxLength=\"5\"/></list><string><enumeration value=\"AB\"/>"
         "<enumeration value=\"C\"/></string>",
         "AB,AB",
         {"C,AB", "C,C,C"},
         {"AB", "AB,AB,C"}},
        {"<dataType ref=\"Names\"/>", "", {"abc,def"}, {"abcd", "abc,def,ghi"}},
        {"<int/><default type=\"object\" value=\"unfit\"/>", "0", {"1"}, {"unfit"}},
    };
    for (const auto& one : cases) {
        ASSERT_EQ(LoadSyntax(one.syntax, types), "") << one.syntax;
        EXPECT_EQ(Value("D.P"), one.first) << one.syntax;
        for (const std::string& value : one.allowed) {
            EXPECT_TRUE(Allows(value)) << one.syntax << " " << value;
        }
        for (const std::string& value : one.refused) {
            EXPECT_FALSE(Allows(value)) << one.syntax << " " << value;
        }
    }
}

TEST_F(XmlModelLoader, AppliesNoPatternThatItDoesNotUnderstand) {
    EXPECT_EQ(LoadSyntax("<string><pattern value=\"\\p{L}+\"/></string>"), "");
    EXPECT_TRUE(Allows("anything"));
}

TEST_F(XmlModelLoader, NamesFileLineAndCause) {
    const struct {
        std::string text;
        const char* message;
    } cases[] = {
        {"<html>\n<body/></html>", ":1: <html> is not a data-model document"},
        {HEAD + "<model>\n<object\n" + TAIL, ":5: "},
        {HEAD, ":2: Start-end tags mismatch"},
        {"<", ":1: "},
        {HEAD + TAIL, ":2: the document describes no model"},
        {HEAD + "<model>\n<object base=\"D.\"/></model>" + TAIL,
         ":4: <object> has no \"name\"; only the flattened form of a model is understood"},
        {HEAD + "<model>\n<object name=\"D.\"/>\n<component ref=\"C\"/></model>" + TAIL,
         ":5: a <component> is left to be put in; only the flattened form"},
        {HEAD + "<model>\n\n<object name=\"D\"/></model>" + TAIL, ":5: D: a path ends in a point"},
        {HEAD + "<model>\n<object name=\"D.\"><parameter name=\"P\"/></object></model>" + TAIL,
         ":4: P has no syntax"},
        {HEAD + "<model>\n<object name=\"D.\"><parameter/></object></model>" + TAIL,
         ":4: <parameter> has no \"name\""},
        {HEAD + "<model>\n<object name=\"D.\"><parameter name=\"P.Q\"/></object></model>" + TAIL,
         ":4: \"P.Q\" is not a parameter name"},
        {HEAD +
             "<model>\n<object name=\"D.\"><parameter name=\"P\" access=\"sometimes\"/></object>"
             "</model>" +
             TAIL,
         ":4: unknown access \"sometimes\""},
        {HEAD + "<model>\n<object name=\"D.{i}.\" maxEntries=\"many\"/></model>" + TAIL,
         ":4: \"maxEntries\" is not a number: \"many\""},
        {HEAD + "<model>\n<object name=\"D.{i}.\" minEntries=\"4000000000\"/></model>" + TAIL,
         ":4: \"minEntries\" is out of range"},
        {HEAD + "<model>\n<object name=\"D.{i}.\" maxEntries=\"-1\"/></model>" + TAIL,
         ":4: \"maxEntries\" is out of range"},
        {HEAD + "<model>\n<object name=\"D.{i}.\" minEntries=\"1.5\"/></model>" + TAIL,
         ":4: \"minEntries\" is not a whole number"},
        {HEAD + "<model><object name=\"D.T.{i}.\"/>\n<object name=\"D.T.\"/></model>" + TAIL,
         ":4: D.T.: \"T\" is a table here and an object there"},
    };
    for (const auto& one : cases) {
        EXPECT_THAT(LoadText(one.text), HasSubstr(m_Dir.File("model.xml") + one.message))
            << one.text;
    }
    for (const char* number : {"nan", "inf", "1e99999", "-inf"}) {
        EXPECT_THAT(LoadText(HEAD + "<model>\n<object name=\"D.{i}.\" maxEntries=\"" + number +
                             "\"/></model>" + TAIL),
                    HasSubstr(":4: \"maxEntries\" is not a number: \"" + std::string(number)));
    }
    EXPECT_THAT(LoadSyntax("<text/>"), HasSubstr(":4: no type is given"));
    EXPECT_THAT(LoadSyntax("<dataType ref=\"X\"/>"), HasSubstr(":4: unknown data type \"X\""));
    EXPECT_THAT(LoadSyntax("<int><range minInclusive=\"low\"/></int>"),
                HasSubstr(":4: \"minInclusive\" is not a number: \"low\""));
    EXPECT_THAT(LoadSyntax("<dataType ref=\"A\"/>",
                           "<dataType name=\"A\" base=\"B\"/>"
                           "<dataType name=\"B\" base=\"A\"/>"),
                HasSubstr(":3: the data type \"A\" is based on itself"));
}

TEST_F(XmlModelLoader, RefusesTypesWithMoreBasesThanCanBeResolved) {
    const auto chain = [](int length) {
        std::string types = "<dataType name=\"T0\"><int/></dataType>\n";
        for (int i = 1; i < length; ++i) {
            types += "<dataType name=\"T" + std::to_string(i) + "\" base=\"T" +
                     std::to_string(i - 1) + "\"/>\n";
        }
        return types;
    };
    EXPECT_EQ(LoadSyntax("<dataType ref=\"T63\"/>", chain(64)), "");
    EXPECT_THAT(LoadSyntax("<dataType ref=\"T199999\"/>", chain(200000)),
                HasSubstr(":199939: the data type \"T199935\" is one of too many in a row"));
}

TEST_F(XmlModelLoader, RefusesTypesOfWhichTooMuchIsSaid) {
    const struct {
        const char* kind;
        const char* text;
    } cases[] = {{"size", "<size maxLength=\"9\"/>\n"},
                 {"range", "<range minInclusive=\"0\"/>\n"},
                 {"enumeration", "<enumeration value=\"0\"/>\n"},
                 {"pattern", "<pattern value=\"0\"/>\n"}};
    for (const auto& one : cases) {
        std::string facets;
        for (int i = 0; i < 1000; ++i) {
            facets += one.text;
        }
        EXPECT_EQ(LoadSyntax("<string>" + facets + "</string>"), "") << one.kind;
        EXPECT_EQ(
            LoadSyntax("<string>" + facets + one.text + "</string>"),
            m_Dir.File("model.xml") + ":1004: one type has more than 1000 <" + one.kind + ">");
        EXPECT_THAT(LoadSyntax("<dataType ref=\"A\"/>", "<dataType name=\"A\"><string>" + facets +
                                                            facets + "</string></dataType>\n"),
                    HasSubstr(":1003: one type has more than 1000 <"));
    }
}

TEST_F(XmlModelLoader, SurvivesDeepNesting) {
    std::string text = HEAD;
    for (int i = 0; i < 100000; ++i) {
        text += "<a>";
    }
    EXPECT_NE(LoadText(text), "");
    for (int i = 0; i < 100000; ++i) {
        text += "</a>";
    }
    EXPECT_THAT(LoadText(text + TAIL), HasSubstr("describes no model"));
}

TEST_F(XmlModelLoader, LoadsAFullModelInUnderASecond) {
    const std::clock_t start = std::clock();
    EXPECT_EQ(LoadText(FullModel()), "");
    // Of this process, whatever else the machine has to do.
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    std::cout << "loaded " << m_Model.Size() << " parameters in " << seconds << " s\n";
    constexpr bool isSlow = OSTEL_SANITIZED != 0 || OSTEL_EMULATED != 0;
    EXPECT_LT(seconds, isSlow ? 20.0 : 1.0);
    TDataModel::TValues values;
    EXPECT_EQ(m_Model.Get("Device.", values), RC_SUCCESS);
    EXPECT_EQ(values.size(), m_Model.Size());
    EXPECT_EQ(Value("Device.Group3.Object86.Parameter0"), "00:00:00:00:00:00");

    // With every table filled, tables in tables too.
    TSchema schema;
    LoadModel(m_Dir.File("model.xml"), schema);
    m_Model = TDataModel(std::move(schema), 10);
    EXPECT_GT(m_Model.Size(), 90000U);
    values.clear();
    EXPECT_EQ(m_Model.Get("Device.", values), RC_SUCCESS);
    EXPECT_EQ(values.size(), m_Model.Size());
    EXPECT_EQ(Value("Device.Group3.Table87.10.Inner85.10.Parameter1"), "1");
    unsigned int id = 0;
    EXPECT_EQ(m_Model.Add("Device.Group3.Table87.10.Inner85.", id), RC_SUCCESS);
    EXPECT_EQ(id, 11U);
    EXPECT_EQ(m_Model.Delete("Device.Group3.Table87.10."), RC_SUCCESS);
    EXPECT_EQ(m_Model.Set({{"Device.Group3.Table87.9.Parameter1", "5"}}), RC_SUCCESS);
    EXPECT_EQ(m_Model.Commit().size(), 1U);
}

}  // namespace
