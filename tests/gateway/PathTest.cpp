#include "Path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

TEST(TPath, TakesANameApart) {
    EXPECT_THAT(TPath("A.1.B").elements, ElementsAre("A", "1", "B"));
    EXPECT_FALSE(TPath("A.1.B").isObject);
    EXPECT_THAT(TPath("A.1.").elements, ElementsAre("A", "1"));
    EXPECT_TRUE(TPath("A.1.").isObject);
    EXPECT_THAT(TPath("").elements, ElementsAre(""));
    EXPECT_THAT(TPath(".").elements, ElementsAre(""));
    EXPECT_THAT(TPath("A..B").elements, ElementsAre("A", "", "B"));
}

TEST(ParentPath, IsWhatHoldsTheObjectOrParameter) {
    EXPECT_EQ(ParentPath("A.B.1."), "A.B.");
    EXPECT_EQ(ParentPath("A.B"), "A.");
    EXPECT_EQ(ParentPath("A."), "");
    EXPECT_EQ(ParentPath("A"), "");
    EXPECT_EQ(ParentPath(""), "");
    EXPECT_EQ(LastElement("A.B.1."), "1");
    EXPECT_EQ(LastElement("A.B"), "B");
    EXPECT_EQ(LastElement("A."), "A");
    EXPECT_EQ(LastElement(""), "");
}

TEST(Covers, IsForParametersPartialPathsAndStars) {
    EXPECT_TRUE(Covers("A.B", "A.B"));
    EXPECT_TRUE(Covers("A.", "A.B.C"));
    EXPECT_TRUE(Covers("A.*.C", "A.1.C"));
    EXPECT_TRUE(Covers("A.*.", "A.1.C"));
    for (const char* name : {"A", "A.B.", "A.*", "A.C", "", ".", "*", "A.B.C"}) {
        EXPECT_EQ(Covers(name, "A.B"), std::string(name) == "A.*") << name;
    }
}

TEST(ToInstanceNumber, TakesWholeNumbersWithoutLeadingZeros) {
    EXPECT_EQ(ToInstanceNumber("1"), 1U);
    EXPECT_EQ(ToInstanceNumber("4294967295"), 4294967295U);
    for (const char* text : {"", "0", "01", "-1", "+1", "1a", "4294967296", " 1"}) {
        EXPECT_FALSE(ToInstanceNumber(text).has_value()) << text;
    }
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
