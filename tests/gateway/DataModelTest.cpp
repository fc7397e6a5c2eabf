#include "DataModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using TValues = TDataModel::TValues;

class DataModel : public testing::Test {
protected:
    DataModel() {
        m_Text.writable = true;
        m_Number.writable = true;
        m_Number.type.base = TBaseType::INT;
        m_Model.AddSchemaPath("Device.");
        m_Model.AddSchemaPath("Device.A.");
        m_Model.AddSchemaPath("Device.Empty.");
        m_Model.AddSchemaPath("Device.Host.{i}.");
        m_Model.AddSchemaPath("Device.Host.{i}.Name");
        m_Model.AddSchemaPath("Device.None.{i}.Name");
        m_Model.AddParameter("Device.A.Text", m_Text, "old");
        m_Model.AddParameter("Device.A.Number", m_Number, "1");
        m_Model.AddParameter("Device.A.Fixed", m_Fixed, "fixed");
        m_Model.AddParameter("Device.AB", m_Text, "beside");
        for (const char* host : {"1", "10", "2"}) {
            m_Model.AddParameter(std::string("Device.Host.") + host + ".Name", m_Text, host);
        }
    }

    TValues Get(const std::string& name, tOstelReturnCode code = RC_SUCCESS) const {
        TValues values;
        EXPECT_EQ(m_Model.Get(name, values), code) << name;
        return values;
    }

    TParamDefinition m_Text;
    TParamDefinition m_Number;
    TParamDefinition m_Fixed;
    TDataModel m_Model;
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
    EXPECT_THAT(Get("Device.Host."),
                ElementsAre(Pair("Device.Host.1.Name", "1"), Pair("Device.Host.2.Name", "2"),
                            Pair("Device.Host.10.Name", "10")));
}

TEST_F(DataModel, MatchesOneElementWithAStar) {
    EXPECT_EQ(Get("Device.Host.*.Name").size(), 3U);
    EXPECT_EQ(Get("Device.*.Text").size(), 1U);
    EXPECT_EQ(Get("*.A.Text").size(), 1U);
    EXPECT_EQ(Get("Device.*.").size(), 6U);
    EXPECT_EQ(Get("Device.*").size(), 1U);
    EXPECT_EQ(Get("Device.Host.*.*").size(), 3U);
}

TEST_F(DataModel, KnowsObjectsThatHaveNoParameters) {
    EXPECT_THAT(Get("Device.Empty."), IsEmpty());
    EXPECT_THAT(Get("Device.None.*.Name"), IsEmpty());
}

TEST_F(DataModel, RefusesUnknownNames) {
    for (const char* name :
         {"", ".", "Device", "Device.A", "Device.X", "Device.A.Text.", "Device.X.", "Device..",
          "device.A.Text", "Device.Host.3.Name", "Device.Host.3.", "Device.Host.*.Nam",
          "Device.A.*.Name", "*", "Device.Host.*.Name.*"}) {
        EXPECT_THAT(Get(name, RC_INVALID_PARAM_NAME), IsEmpty()) << name;
    }
}

TEST_F(DataModel, StagesAWriteUntilItIsCommitted) {
    EXPECT_EQ(m_Model.Set("Device.A.Text", "new"), RC_SUCCESS);
    EXPECT_EQ(m_Model.Set("Device.A.Number", "7"), RC_SUCCESS);
    EXPECT_EQ(Get("Device.A.Text")[0].second, "old");
    EXPECT_THAT(m_Model.Changes(),
                ElementsAre(Pair("Device.A.Number", "7"), Pair("Device.A.Text", "new")));
    m_Model.Commit();
    EXPECT_EQ(Get("Device.A.Text")[0].second, "new");
    EXPECT_THAT(m_Model.Changes(), IsEmpty());
}

TEST_F(DataModel, ReportsOnlyWhatChanges) {
    m_Model.Set("Device.A.Text", "new");
    m_Model.Set("Device.A.Text", "old");
    EXPECT_THAT(m_Model.Changes(), IsEmpty());
}

TEST_F(DataModel, RefusesWritesByTheirCodes) {
    EXPECT_EQ(m_Model.Set("Device.A.X", "1"), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_Model.Set("Device.A.", "1"), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_Model.Set("Device.Host.*.Name", "1"), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_Model.Set("Device.A.Fixed", "x"), RC_NOT_SUPPORTED);
    EXPECT_EQ(m_Model.Set("Device.A.Number", "x"), RC_INVALID_PARAM_VALUE);
    EXPECT_THAT(m_Model.Changes(), IsEmpty());
}

TEST_F(DataModel, RestoresOnlyWhatItsTypesAllow) {
    EXPECT_TRUE(m_Model.Restore("Device.A.Fixed", "stored"));
    EXPECT_EQ(Get("Device.A.Fixed")[0].second, "stored");
    EXPECT_FALSE(m_Model.Restore("Device.A.Number", "x"));
    EXPECT_FALSE(m_Model.Restore("Device.Gone", "x"));
}

TEST(TPathLess, IsAStrictOrder) {
    const std::string paths[] = {"A.",    "A.1.",  "A.2.",  "A.9.x", "A.10.", "A.10.a",
                                 "A.1a.", "A.B",   "A.B.",  "A.B.C", "B",     "",
                                 "A",     "A.01.", "A.100", "A.{i}", "A..b"};
    const TPathLess less;
    for (const auto& a : paths) {
        EXPECT_FALSE(less(a, a)) << a;
        for (const auto& b : paths) {
            EXPECT_FALSE(less(a, b) && less(b, a)) << a << " " << b;
            EXPECT_TRUE(a == b || less(a, b) || less(b, a)) << a << " " << b;
            for (const auto& c : paths) {
                EXPECT_TRUE(!less(a, b) || !less(b, c) || less(a, c)) << a << " " << b << " " << c;
            }
        }
    }
}

}  // namespace
