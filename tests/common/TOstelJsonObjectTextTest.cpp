// Documents as text and as files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "JsonObjectTest.h"
#include "TempDir.h"

namespace {

using namespace JsonObjectTest;

std::string ContentOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST(TOstelJsonObjectText, EncodesInInsertionOrderWithTheIndent) {
    TJson object;
    object.SetPropertyValue("z", 1);
    object.SetPropertyValue("a", 2);
    EXPECT_EQ(object.EncodeToString(-1), R"({"z":1,"a":2})");
    EXPECT_EQ(object.EncodeToString(2), "{\n  \"z\": 1,\n  \"a\": 2\n}");
    EXPECT_EQ(object.EncodeToString(0), R"({"z": 1, "a": 2})");
    EXPECT_EQ(object.EncodeToString(34), object.EncodeToString(2));
    EXPECT_EQ(object.EncodeToString(-30), object.EncodeToString(2));
}

// Peers compare texts: what they have always been sent stays as it is, byte for byte.
TEST(TOstelJsonObjectText, EncodesTextsAndNumbersInTheirOneForm) {
    TJson object;
    object.SetPropertyValue<std::string>("s", "/a\u00e9\"\\\n");
    object.SetPropertyValue("d", 0.1);
    object.SetPropertyValue("w", 3.0);
    EXPECT_EQ(Encoded(object),
              "{\"s\":\"/a\u00e9\\\"\\\\\\n\",\"d\":0.10000000000000001,\"w\":3.0}");
}

TEST(TOstelJsonObjectText, HasNoTextForAValueThatIsNoDocument) {
    const TJson object = Decoded(R"({"s":"a","i":1,"t":true,"n":null,"a":[1]})");
    TempDir dir;
    for (const char* name : {"s", "i", "t", "n"}) {
        EXPECT_EQ(Encoded(object.GetObject(name)), "") << name;
        EXPECT_FALSE(object.GetObject(name).DumpToFile(dir.File("x"), -1)) << name;
    }
    EXPECT_EQ(Encoded(object.GetObject("a")), "[1]");
}

TEST(TOstelJsonObjectText, TakesTheLastOfPropertiesOfOneName) {
    EXPECT_EQ(Encoded(Decoded(R"({"a":1,"b":2,"a":3})")), R"({"a":3,"b":2})");
    TempDir dir;
    std::ofstream(dir.File("x")) << R"({"a":1,"a":3})";
    TJson object;
    EXPECT_TRUE(object.LoadFile(dir.File("x")));
    EXPECT_EQ(Encoded(object), R"({"a":3})");
}

TEST(TOstelJsonObjectText, LoadsWhatItDecodesAndNothingElse) {
    TempDir dir;
    for (const char* text : {"1", "\"a\"", "null", "{} x", "{\"a\":\"\\u0000\"}"}) {
        std::ofstream(dir.File("x")) << text;
        EXPECT_FALSE(TJson().LoadFile(dir.File("x"))) << text;
        EXPECT_FALSE(TJson().DecodeFromString(text)) << text;
    }
    std::ofstream(dir.File("x")) << R"([1])";
    TJson object;
    EXPECT_TRUE(object.LoadFile(dir.File("x")));
    EXPECT_EQ(Encoded(object), "[1]");
}

TEST(TOstelJsonObjectText, EmptyTextLeavesItAsItWas) {
    TJson object = Decoded(R"({"a":1})");
    EXPECT_FALSE(object.DecodeFromString(""));
    EXPECT_EQ(object.GetErrorText(), "");
    EXPECT_EQ(Encoded(object), R"({"a":1})");
}

TEST(TOstelJsonObjectText, FailedDecodeLeavesNoValue) {
    TJson object = Decoded(R"({"a":1})");
    EXPECT_FALSE(object.DecodeFromString("{"));
    EXPECT_THAT(object.GetErrorText(), testing::StartsWith("line 1: "));
    EXPECT_GT(object.GetErrorText().size(), std::string("line 1: ").size());
    EXPECT_EQ(Encoded(object), "");
    EXPECT_TRUE(object.IsEmpty());
    EXPECT_FALSE(object.HasProperty("a"));
    EXPECT_EQ(object.SetPropertyValue("a", 1), -1);
    EXPECT_TRUE(object.DecodeFromString("{}"));
    EXPECT_EQ(object.GetErrorText(), "");
}

TEST(TOstelJsonObjectText, NamesTheLineOfAFault) {
    TJson object;
    EXPECT_FALSE(object.DecodeFromString("{\n\"a\": 1,\nx}"));
    EXPECT_THAT(object.GetErrorText(), testing::StartsWith("line 3: "));
}

TEST(TOstelJsonObjectText, DoesNotTakeANulForTheEndOfADocument) {
    for (const std::string& text : {std::string("{}\0junk", 7), std::string("{}\0", 3),
                                    std::string("\0{}", 3), std::string("{\"a\0\":1}", 8)}) {
        TJson object;
        EXPECT_FALSE(object.DecodeFromString(text));
        EXPECT_THAT(object.GetErrorText(), testing::StartsWith("line 1: "));
        EXPECT_EQ(Encoded(object), "");
    }
}

TEST(TOstelJsonObjectText, TakesAnObjectOrAnArrayAtTheTop) {
    EXPECT_TRUE(TJson().DecodeFromString("[1]"));
    for (const char* text : {"1", "\"a\"", "null", "{} x", "nonsense", "{'a':1}"}) {
        EXPECT_FALSE(TJson().DecodeFromString(text)) << text;
    }
}

TEST(TOstelJsonObjectText, DumpsAndLoadsFiles) {
    TempDir dir;
    const TJson object = Decoded(R"({"z":1,"a":[2]})");
    ASSERT_TRUE(object.DumpToFile(dir.File("x.json"), -1));
    EXPECT_EQ(ContentOf(dir.File("x.json")), R"({"z":1,"a":[2]})");
    for (const int indent : {0, 2, 34, -30}) {
        ASSERT_TRUE(object.DumpToFile(dir.File("y.json"), indent));
        EXPECT_EQ(ContentOf(dir.File("y.json")), object.EncodeToString(indent)) << indent;
    }
    TJson loaded;
    EXPECT_TRUE(loaded.LoadFile(dir.File("x.json")));
    EXPECT_EQ(Encoded(loaded), Encoded(object));
    EXPECT_FALSE(object.DumpToFile("/nonexistent/x.json", -1));
    const std::string cut = dir.File("x.json") + std::string("\0y", 2);
    EXPECT_FALSE(TJson().DumpToFile(cut, -1));
    EXPECT_EQ(ContentOf(dir.File("x.json")), R"({"z":1,"a":[2]})");
    EXPECT_FALSE(loaded.LoadFile(cut));
    EXPECT_THAT(loaded.GetErrorText(), testing::StartsWith("line -1: "));
}

TEST(TOstelJsonObjectText, TellsWhyAFileIsNotLoaded) {
    TempDir dir;
    TJson object = Decoded(R"({"a":1})");
    EXPECT_FALSE(object.LoadFile(dir.File("missing")));
    EXPECT_THAT(object.GetErrorText(), testing::StartsWith("line -1: "));
    EXPECT_EQ(Encoded(object), "");
    EXPECT_FALSE(object.LoadFile(""));
    EXPECT_NE(object.GetErrorText(), "");
    std::ofstream(dir.File("bad")) << "{\n\n]";
    EXPECT_FALSE(object.LoadFile(dir.File("bad")));
    EXPECT_THAT(object.GetErrorText(), testing::StartsWith("line 3: "));
    std::ofstream(dir.File("good")) << "{}";
    EXPECT_TRUE(object.LoadFile(dir.File("good")));
    EXPECT_EQ(object.GetErrorText(), "");
}

TEST(TOstelJsonObjectText, RefusesHundredThousandLevels) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    TJson object;
    EXPECT_FALSE(object.DecodeFromString(deep));
    EXPECT_THAT(object.GetErrorText(), testing::HasSubstr("depth"));
    EXPECT_FALSE(object.DecodeFromString(std::string(100000, '{')));
}

TEST(TOstelJsonObjectText, ReadsTenMegabytes) {
    const std::string text(10 * 1024 * 1024, 'x');
    TJson object;
    object.SetPropertyValue("a", text);
    const TJson again = Decoded(Encoded(object));
    EXPECT_EQ(again.GetPropertyValue<std::string>("a", ""), text);
}

}  // namespace
