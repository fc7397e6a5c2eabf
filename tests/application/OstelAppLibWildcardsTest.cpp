// Names with one wildcard.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "ostelAppLib.h"

namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;

TEST(PatternMatch, LetsTheFirstStarStandForOneSegment) {
    int index = -1;
    EXPECT_TRUE(
        patternMatch("Device.IP.Interface.*.Enable", "Device.IP.Interface.3.Enable", &index));
    EXPECT_EQ(index, 3);
    EXPECT_FALSE(
        patternMatch("Device.IP.Interface.*.Enable", "Device.IP.Interface.3.Status", &index));
    EXPECT_FALSE(patternMatch("A.*.B", "A.1.2.B", nullptr));
    // A later star is an ordinary character.
    EXPECT_TRUE(patternMatch("A.*.B.*.C", "A.1.B.*.C", &index));
    EXPECT_FALSE(patternMatch("A.*.B.*.C", "A.1.B.2.C", &index));
    EXPECT_TRUE(patternMatch("*.B", "7.B", &index));
    EXPECT_EQ(index, 7);
}

TEST(PatternMatch, LeavesTheIndexAloneWithoutAMatch) {
    int index = -1;
    EXPECT_FALSE(patternMatch("A.*.B", "A.3.C", &index));
    EXPECT_FALSE(patternMatch("A.*.B", "X.3.B", &index));
    // Nor is the segment of such a name read: it need not be a number.
    EXPECT_FALSE(patternMatch("A.*.B", "A.x.C", &index));
    EXPECT_FALSE(patternMatch("A.*.B", "X..B", &index));
    EXPECT_FALSE(patternMatch("A.*", "A.x.", &index));
    EXPECT_EQ(index, -1);
}

TEST(PatternMatch, ReadsTheSegmentAsStoiDoes) {
    int index = 0;
    EXPECT_TRUE(patternMatch("A.*.B", "A. -12x.B", &index));
    EXPECT_EQ(index, -12);
    EXPECT_TRUE(patternMatch("A.*.B", "A..B", nullptr));
    EXPECT_TRUE(patternMatch("A.*.B", "A.x.B", nullptr));
    EXPECT_THAT([&] { patternMatch("A.*.B", "A..B", &index); },
                ThrowsMessage<std::invalid_argument>("stoi"));
    EXPECT_THAT([&] { patternMatch("A.*.B", "A.99999999999.B", &index); },
                ThrowsMessage<std::out_of_range>("stoi"));
    EXPECT_EQ(index, -12);
}

TEST(PatternMatch, FailsWithoutAStarOrWithoutAPointBehindIt) {
    EXPECT_THROW(patternMatch("A.1.B", "A.1.B", nullptr), std::out_of_range);
    EXPECT_THROW(patternMatch("A.*.B", "A.1", nullptr), std::out_of_range);
    EXPECT_THROW(patternMatch("A.*.B", "A", nullptr), std::out_of_range);
    EXPECT_THROW(patternMatch("A.*", "A.1", nullptr), std::out_of_range);
    EXPECT_THROW(patternMatch("", "", nullptr), std::out_of_range);
}

TEST(PatternMatch, CollectsIndicesWithoutClearing) {
    std::vector<int> indices = {9};
    getWildcardIndices("A.*.B", {"A.1.B", "A.2.C", "A.7.B"}, indices);
    EXPECT_THAT(indices, ElementsAre(9, 1, 7));
    EXPECT_THROW(getWildcardIndices("A.*.B", {"A.1.B", "no point"}, indices), std::out_of_range);
}

}  // namespace
