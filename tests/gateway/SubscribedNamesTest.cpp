#include "SubscribedNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

std::vector<std::string> Names(std::size_t count, const std::string& end = "") {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count; ++i) {
        names.push_back("N" + std::to_string(i) + end);
    }
    return names;
}

TEST(TSubscribedNames, StandForParametersByNamePartialPathAndStar) {
    TSubscribedNames names;
    EXPECT_TRUE(names.Empty());
    EXPECT_TRUE(names.Add("S", {"Device.A", "Device.B.", "Device.*.C", "X"}));
    for (const char* name :
         {"Device.A", "Device.B.X", "Device.B.X.Y", "Device.Z.C", "Device.B.C", "X"}) {
        EXPECT_TRUE(names.Cover(name)) << name;
    }
    for (const char* name : {"Device.AA", "Device.A.X", "Device.B", "Device.BX", "Device.X.Y.C",
                             "Device.", "", "X.Y"}) {
        EXPECT_FALSE(names.Cover(name)) << name;
    }
    TSubscribedNames all;
    EXPECT_TRUE(all.Add("S", {"Device."}));
    EXPECT_TRUE(all.Cover("Device.A.B"));
}

TEST(TSubscribedNames, StayForAsLongAsASubscriberHasThem) {
    TSubscribedNames names;
    EXPECT_TRUE(names.Add("S1", {"A", "*"}));
    EXPECT_TRUE(names.Add("S2", {"A"}));
    names.Remove("S1", {"A"});
    names.Remove("S3", {"A", "B"});
    names.Remove("S1", {"*"});
    EXPECT_TRUE(names.Cover("A"));
    EXPECT_FALSE(names.Cover("B"));
    names.Remove("S2", {"A"});
    EXPECT_FALSE(names.Cover("A"));
    EXPECT_TRUE(names.Empty());
}

TEST(TSubscribedNames, TellWhatTheSubscriberDidNotHaveYet) {
    TSubscribedNames names;
    EXPECT_THAT(names.Add("S1", {"B", "A", "B"}), Optional(ElementsAre("A", "B")));
    EXPECT_THAT(names.Add("S1", {"A", "*"}), Optional(ElementsAre("*")));
    EXPECT_THAT(names.Add("S1", {"A"}), Optional(IsEmpty()));
    EXPECT_THAT(names.Add("S2", {"A"}), Optional(ElementsAre("A")));
}

TEST(TSubscribedNames, HaveALimitOverAllSubscribers) {
    TSubscribedNames names;
    EXPECT_TRUE(names.Add("S1", Names(4000)));
    EXPECT_FALSE(names.Add("S2", Names(97)));
    EXPECT_TRUE(names.Add("S2", Names(96)));
    // What a subscriber has already is not counted again.
    EXPECT_TRUE(names.Add("S1", Names(4000)));
    EXPECT_FALSE(names.Add("S1", {"new"}));
    EXPECT_FALSE(names.Cover("new"));
    names.Remove("S2", {"N1"});
    EXPECT_TRUE(names.Add("S1", {"new", "new"}));
}

TEST(TSubscribedNames, HaveALimitOfStars) {
    TSubscribedNames names;
    EXPECT_FALSE(names.Add("S", Names(65, ".*")));
    EXPECT_TRUE(names.Empty());
    EXPECT_TRUE(names.Add("S", Names(64, ".*")));
    EXPECT_FALSE(names.Add("S", {"A", "B.*"}));
    EXPECT_FALSE(names.Cover("A"));
    EXPECT_TRUE(names.Add("S", {"A"}));
}

}  // namespace
