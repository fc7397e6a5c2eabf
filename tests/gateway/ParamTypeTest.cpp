#include "ParamType.h"

#include <gtest/gtest.h>

namespace {

TParamType Of(const std::string& name) {
    TParamType type;
    type.base = ToBaseType(name).value();
    return type;
}

struct TCase {
    const char* type;
    std::vector<std::string> allowed;
    std::vector<std::string> refused;
};

TEST(ParamType, AllowsWhatItsBaseTypeAllows) {
    const TCase cases[] = {
        {"string", {"", "anything", "\xC3\xA4"}, {}},
        {"boolean", {"true", "false", "0", "1"}, {"", "TRUE", "yes", "2", " true"}},
        {"int",
         {"0", "-1", "+5", "2147483647", "-2147483648", "007"},
         {"", "-", "2147483648", "-2147483649", "1.0", "0x1", " 1", "1 ", "99999999999999999999"}},
        {"unsignedInt", {"0", "4294967295"}, {"", "-1", "+1", "4294967296", "1e3"}},
        {"long",
         {"9223372036854775807", "-9223372036854775808"},
         {"9223372036854775808", "-9223372036854775809"}},
        {"unsignedLong", {"18446744073709551615"}, {"18446744073709551616", "-1"}},
        {"decimal", {"0", "1.5", "-.5", "3.", "+2"}, {"", ".", "1e5", "1,5", "1.2.3"}},
        {"dateTime",
         {"2026-01-15T09:30:00Z", "0001-01-01T00:00:00Z", "2026-01-15T09:30:00.123+01:00",
          "2026-01-15T09:30:00"},
         {"", "2026-01-15", "2026-13-01T00:00:00Z", "2026-01-15T24:00:00Z",
          "2026-01-15 09:30:00Z"}},
        {"base64", {"", "QQ==", "QUI=", "QUJD"}, {"QQ", "Q===", "QU I=", "===="}},
        {"hexBinary", {"", "0a", "FF00"}, {"a", "0g", " 0a"}},
    };
    for (const TCase& one : cases) {
        for (const std::string& value : one.allowed) {
            EXPECT_TRUE(Of(one.type).Allows(value)) << one.type << " " << value;
        }
        for (const std::string& value : one.refused) {
            EXPECT_FALSE(Of(one.type).Allows(value)) << one.type << " " << value;
        }
    }
}

TEST(ParamType, KnowsNoOtherNames) {
    EXPECT_FALSE(ToBaseType("integer").has_value());
}

TEST(ParamType, HoldsNumbersWithinTheirRange) {
    TParamType type = Of("int");
    type.ranges = {{-1, 10}, {20, std::nullopt}};
    EXPECT_TRUE(type.Allows("-1"));
    EXPECT_TRUE(type.Allows("10"));
    EXPECT_FALSE(type.Allows("-2"));
    EXPECT_FALSE(type.Allows("11"));
    EXPECT_TRUE(type.Allows("20"));
}

// A double would round them.
TEST(ParamType, HoldsLongNumbersWithinTheirRangeToTheLastDigit) {
    if (!TParamType::RANGES_ARE_EXACT) {
        GTEST_SKIP() << "no type of this processor holds 64 bits and a fraction";
    }
    TParamType type = Of("long");
    type.ranges = {{-9007199254740993, 9223372036854775806}};
    EXPECT_TRUE(type.Allows("-9007199254740993"));
    EXPECT_FALSE(type.Allows("-9007199254740994"));
    EXPECT_TRUE(type.Allows("9223372036854775806"));
    EXPECT_FALSE(type.Allows("9223372036854775807"));
    TParamType natural = Of("unsignedLong");
    natural.ranges = {{std::nullopt, 18446744073709551614U}};
    EXPECT_TRUE(natural.Allows("18446744073709551614"));
    EXPECT_FALSE(natural.Allows("18446744073709551615"));
}

TEST(ParamType, ADecimalThatIsWrittenLikeTheEndOfItsRangeIsWithinIt) {
    TParamType type = Of("decimal");
    type.ranges = {{0.1, 0.3}};
    EXPECT_TRUE(type.Allows("0.1"));
    EXPECT_TRUE(type.Allows("0.3"));
    EXPECT_FALSE(type.Allows("0.09999999"));
    EXPECT_FALSE(type.Allows("0.30000001"));
    type.ranges = {{0.1L, 0.3L}};
    EXPECT_TRUE(type.Allows("0.1"));
    EXPECT_TRUE(type.Allows("0.3"));
}

TEST(ParamType, CountsCharactersNotBytes) {
    TParamType type = Of("string");
    type.sizes = {{2, 3}};
    EXPECT_FALSE(type.Allows("\xC3\xA4"));
    EXPECT_TRUE(type.Allows("\xC3\xA4\xC3\xA4\xC3\xA4"));
    EXPECT_FALSE(type.Allows("abcd"));
    TParamType binary = Of("hexBinary");
    binary.sizes = {{std::nullopt, 2}};
    EXPECT_TRUE(binary.Allows("0a0b"));
    EXPECT_FALSE(binary.Allows("0a0b0c"));
    TParamType base64 = Of("base64");
    base64.sizes = {{std::nullopt, 1}};
    EXPECT_TRUE(base64.Allows("QQ=="));
    EXPECT_FALSE(base64.Allows("QUI="));
}

TEST(ParamType, HoldsToPatternsThatCanBeReadInMoreWaysThanCanBeTried) {
    TParamType type = Of("string");
    type.patterns.emplace_back("(a|a|aa)*b");
    EXPECT_FALSE(type.Allows(std::string(4000, 'a')));
    EXPECT_TRUE(type.Allows(std::string(4000, 'a') + "b"));
    type.patterns.clear();
    type.patterns.emplace_back("(" + std::string(500, '|') + ")+X");
    EXPECT_FALSE(type.Allows("0"));
    EXPECT_TRUE(type.Allows("X"));
}

TEST(ParamType, HasNoPatternWithNumbersThatTheEngineCannotHold) {
    using TPattern = TParamType::TPattern;
    for (const std::string number : {"1234567890", "44444444444444444444"}) {
        EXPECT_THROW(TPattern("(a)\\" + number), std::regex_error);
        EXPECT_THROW(TPattern("a{" + number + "}"), std::regex_error);
        EXPECT_THROW(TPattern("a{1," + number + "}"), std::regex_error);
        TParamType type = Of("string");
        type.patterns.emplace_back("[{," + number + "]+\\{" + number + "," + number);
        EXPECT_TRUE(type.Allows("44,{" + number + "," + number));
    }
    EXPECT_THROW(TPattern("a{999999999}"), std::regex_error);
    EXPECT_THROW(TPattern("a{4294967297}"), std::regex_error);
    EXPECT_TRUE(std::regex_match(std::string(1000, 'a'), TPattern("a{1000}").expression));
}

TEST(ParamType, HoldsToEnumerationAndPattern) {
    TParamType type = Of("string");
    type.enumeration = {"ON", "OFF"};
    EXPECT_TRUE(type.Allows("ON"));
    EXPECT_FALSE(type.Allows("on"));
    TParamType pattern = Of("string");
    pattern.patterns.emplace_back("[a-z]+");
    pattern.patterns.emplace_back("");
    EXPECT_TRUE(pattern.Allows("abc"));
    EXPECT_FALSE(pattern.Allows("abc1"));
    EXPECT_TRUE(pattern.Allows(""));
    EXPECT_FALSE(pattern.Allows(std::string(10 * 1024 * 1024, 'a')));
}

TEST(ParamType, HoldsEachItemOfAList) {
    TParamType type = Of("unsignedInt");
    type.ranges = {{std::nullopt, 10}};
    type.list = TParamType::TList{{std::nullopt, 3}, {std::nullopt, 8}};
    for (const char* text : {"", "1", "1,2", "1, 2 ,10"}) {
        EXPECT_TRUE(type.Allows(text)) << text;
    }
    for (const char* text : {",", "1,", "1,x", "1,11", "1,2,3,4", "1,    2,3"}) {
        EXPECT_FALSE(type.Allows(text)) << text;
    }
    type.list->items.minimum = 1;
    EXPECT_FALSE(type.Allows(""));
}

TEST(ParamType, KeepsBooleansInOneForm) {
    EXPECT_EQ(Of("boolean").Canonical("1"), "true");
    EXPECT_EQ(Of("boolean").Canonical("0"), "false");
    EXPECT_EQ(Of("string").Canonical("1"), "1");
}

}  // namespace
