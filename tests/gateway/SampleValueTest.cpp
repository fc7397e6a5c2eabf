#include "SampleValue.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <limits>

namespace {

TParamType Of(const std::string& base) {
    TParamType type;
    type.base = ToBaseType(base).value();
    return type;
}

long PeakKilobytes() {
    rusage usage{};
    EXPECT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
    return usage.ru_maxrss;
}

TEST(SampleValue, IsTheSimplestOfABaseType) {
    EXPECT_EQ(SampleValue(Of("string")), "");
    EXPECT_EQ(SampleValue(Of("boolean")), "false");
    EXPECT_EQ(SampleValue(Of("int")), "0");
    EXPECT_EQ(SampleValue(Of("decimal")), "0");
    EXPECT_EQ(SampleValue(Of("dateTime")), "0001-01-01T00:00:00Z");
    EXPECT_EQ(SampleValue(Of("base64")), "");
    EXPECT_EQ(SampleValue(Of("hexBinary")), "");
}

TEST(SampleValue, IsWithinTheLimits) {
    TParamType number = Of("int");
    number.ranges = {{5, 10}};
    EXPECT_EQ(SampleValue(number), "5");
    number.ranges = {{std::nullopt, -3}};
    EXPECT_EQ(SampleValue(number), "-3");
    TParamType choice = Of("string");
    choice.enumeration = {"First", "Second"};
    EXPECT_EQ(SampleValue(choice), "First");
    for (const char* base : {"string", "hexBinary", "base64"}) {
        for (const std::size_t length : {1U, 2U, 3U, 16U}) {
            TParamType sized = Of(base);
            sized.sizes = {{length, std::nullopt}};
            const auto sample = SampleValue(sized);
            ASSERT_TRUE(sample.has_value()) << base << length;
            EXPECT_TRUE(sized.Allows(*sample)) << base << *sample;
        }
    }
}

TEST(SampleValue, MatchesThePatternsOfRealModels) {
    for (const char* pattern :
         {"([0-9A-Fa-f][0-9A-Fa-f]:){5}([0-9A-Fa-f][0-9A-Fa-f])", "[0-9A-F]{6}",
          "((25[0-5]|2[0-4][0-9]|[01]?[0-9]?[0-9])\\.){3}(25[0-5]|2[0-4][0-9]|[01]?[0-9]?[0-9])",
          "[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}", "\\d{1,3}",
          "(?:a|b)+c?", "[^,]+x", "Device\\.[\\w.]+", "1(2(3)*)+\\|", "[\\d\\-]{2}", ".{3,}",
          "a$"}) {
        TParamType type = Of("string");
        type.patterns.emplace_back(pattern);
        EXPECT_TRUE(SampleValue(type).has_value()) << pattern;
    }
}

TEST(SampleValue, OfAListHasAsManyItemsAsThereHaveToBe) {
    TParamType type = Of("int");
    type.list.emplace();
    EXPECT_EQ(SampleValue(type), "");
    type.list->items.minimum = 3;
    EXPECT_EQ(SampleValue(type), "0,0,0");
}

TEST(SampleValue, IsNotLookedForAmongEndlessTexts) {
    for (const char* const base : {"string", "hexBinary", "base64"}) {
        TParamType sized = Of(base);
        sized.sizes = {{std::numeric_limits<unsigned int>::max(), std::nullopt}};
        EXPECT_FALSE(SampleValue(sized).has_value()) << base;
    }
    TParamType list = Of("int");
    list.list.emplace();
    list.list->items.minimum = std::numeric_limits<unsigned int>::max();
    EXPECT_FALSE(SampleValue(list).has_value());
}

TEST(SampleValue, IsLookedForAmongLongTextsOneByOne) {
    if (OSTEL_SANITIZED) {
        GTEST_SKIP() << "a sanitizer keeps what was given back";
    }
    TParamType type = Of("string");
    type.sizes.assign(1000, {64 * 1024, std::nullopt});
    type.enumeration = {"none is as long as this"};
    const long before = PeakKilobytes();
    EXPECT_FALSE(SampleValue(type).has_value());
    EXPECT_LT(PeakKilobytes() - before, 16 * 1024);
}

TEST(SampleValue, IsNothingWhereThereIsNone) {
    TParamType type = Of("int");
    type.ranges = {{5, 4}};
    EXPECT_FALSE(SampleValue(type).has_value());
    TParamType unknown = Of("string");
    unknown.patterns.emplace_back("(?=a)a");
    EXPECT_FALSE(SampleValue(unknown).has_value());
}

}  // namespace
