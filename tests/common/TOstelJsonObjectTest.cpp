#include "TOstelJsonObject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <climits>
#include <limits>
#include <string>
#include <vector>

#include "JsonObjectTest.h"
#include "TempDir.h"

namespace {

using testing::IsEmpty;
using namespace JsonObjectTest;

TEST(TOstelJsonObject, StartsAsTheEmptyObject) {
    const TJson object;
    EXPECT_EQ(Encoded(object), "{}");
    EXPECT_TRUE(object.IsEmpty());
    EXPECT_EQ(object.GetErrorText(), "");
}

TEST(TOstelJsonObject, CopyIsDeep) {
    const TJson original = Decoded(R"({"a":{"b":[1]}})");
    TJson copy = original;
    copy.GetObjectRef("a").SetPropertyValue("b", 2);
    EXPECT_EQ(Encoded(original), R"({"a":{"b":[1]}})");
    EXPECT_EQ(Encoded(copy), R"({"a":{"b":2}})");
}

TEST(TOstelJsonObject, AssignmentIsDeepAndKeepsTheErrorText) {
    const TJson original = Decoded(R"({"a":{"b":1}})");
    TJson target;
    EXPECT_FALSE(target.DecodeFromString("{"));
    const std::string error = target.GetErrorText();
    target = original;
    target.GetObjectRef("a").SetPropertyValue("b", 2);
    EXPECT_EQ(Encoded(original), R"({"a":{"b":1}})");
    EXPECT_EQ(target.GetErrorText(), error);
    EXPECT_NE(error, "");
}

TEST(TOstelJsonObject, SelfAssignmentDoesNothing) {
    TJson object = Decoded(R"({"a":1})");
    const void* const before = object.GetJsonObject("a", 0);
    const TJson& same = object;
    object = same;
    EXPECT_EQ(object.GetJsonObject("a", 0), before);
}

TEST(TOstelJsonObject, CopyStartsWithoutErrorText) {
    TJson failed;
    EXPECT_FALSE(failed.DecodeFromString("{"));
    const TJson copy(failed);
    EXPECT_EQ(copy.GetErrorText(), "");
    EXPECT_EQ(Encoded(copy), "");
}

TEST(TOstelJsonObject, GetObjectCopiesAndGetObjectRefShares) {
    TJson object = Decoded(R"({"a":{"b":1}})");
    object.GetObject("a").SetPropertyValue("b", 2);
    EXPECT_EQ(Encoded(object), R"({"a":{"b":1}})");
    object.GetObjectRef("a").SetPropertyValue("b", 3);
    EXPECT_EQ(Encoded(object), R"({"a":{"b":3}})");
}

TEST(TOstelJsonObject, SharedValueOutlivesItsFirstOwner) {
    TJson shared;
    {
        const TJson object = Decoded(R"({"a":{"b":1}})");
        const TJson reference = object.GetObjectRef("a");
        shared = reference;
    }
    EXPECT_EQ(Encoded(shared), R"({"b":1})");
    auto* const object = new TJson(Decoded(R"({"a":{"b":1}})"));
    const TJson reference = object->GetObjectRef("a");
    delete object;
    EXPECT_EQ(Encoded(reference), R"({"b":1})");
}

TEST(TOstelJsonObject, MissingPropertyYieldsNoValue) {
    const TJson object;
    EXPECT_EQ(Encoded(object.GetObject("x")), "");
    EXPECT_EQ(Encoded(object.GetObjectRef("x")), "");
}

TEST(TOstelJsonObject, ReferencesAreCounted) {
    TJson object;
    json_t* const value = json_integer(1);
    json_incref(value);
    EXPECT_EQ(object.SetJsonObject("a", value), 0);
    EXPECT_EQ(value->refcount, 2U);
    {
        const TJson shared = object.GetObjectRef("a");
        EXPECT_EQ(value->refcount, 3U);
    }
    EXPECT_EQ(value->refcount, 2U);
    EXPECT_TRUE(object.RemoveProperty("a"));
    EXPECT_EQ(value->refcount, 1U);
    json_decref(value);
}

TEST(TOstelJsonObject, ConstantValuesAreSharedWithoutCounting) {
    const TJson object = Decoded(R"({"t":true,"f":false,"n":null})");
    const auto uncounted = json_true()->refcount;
    for (const char* name : {"t", "f", "n"}) {
        const auto* const value =
            static_cast<const json_t*>(object.GetJsonObject(name, TJson::WHOLE_PROPERTY));
        {
            const TJson shared = object.GetObjectRef(name);
            EXPECT_EQ(value->refcount, uncounted) << name;
        }
        EXPECT_EQ(value->refcount, uncounted) << name;
    }
}

TEST(TOstelJsonObject, ListsItsPropertiesInTheOrderOfTheJsonLibrary) {
    TJson object = Decoded(R"({"o":{"z":1,"a":2,"m":3,"b":4}})");
    object.GetObjectRef("o").RemoveProperty("m");
    object.GetObjectRef("o").SetPropertyValue("m", 5);
    auto* const raw = static_cast<json_t*>(object.GetJsonObject("o", TJson::WHOLE_PROPERTY));
    std::vector<std::string> expected;
    for (void* at = json_object_iter(raw); at != nullptr; at = json_object_iter_next(raw, at)) {
        expected.emplace_back(json_object_iter_key(at));
    }
    EXPECT_EQ(object.GetObjectRef("o").GetProperties(), expected);
    EXPECT_EQ(expected.size(), 4U);
}

TEST(TOstelJsonObject, KnowsItsProperties) {
    TJson object = Decoded(R"({"z":null,"a":1,"m":{}})");
    EXPECT_FALSE(object.IsEmpty());
    EXPECT_TRUE(object.HasProperty("z"));
    EXPECT_FALSE(object.HasProperty("y"));
    EXPECT_THAT(object.GetProperties(), testing::UnorderedElementsAre("z", "a", "m"));
    EXPECT_TRUE(object.RemoveProperty("a"));
    EXPECT_FALSE(object.RemoveProperty("a"));
    EXPECT_TRUE(object.Clear());
    EXPECT_TRUE(object.IsEmpty());
    EXPECT_THAT(object.GetProperties(), IsEmpty());
}

TEST(TOstelJsonObject, MapsEveryType) {
    const TJson object =
        Decoded(R"({"o":{},"a":[],"s":"","i":1,"r":1.5,"t":true,"f":false,"n":null})");
    const struct {
        const char* name;
        int type;
    } cases[] = {{"o", 0}, {"a", 1}, {"s", 2}, {"i", 3},      {"r", 4},
                 {"t", 5}, {"f", 5}, {"n", 6}, {"missing", 7}};
    for (const auto& one : cases) {
        EXPECT_EQ(object.GetPropertyType(one.name), one.type) << one.name;
    }
    EXPECT_EQ(object.GetJsonObjectType(nullptr), TJson::JSON_TYPE_UNKNOWN);
}

TEST(TOstelJsonObject, TellsTheTypeOfASequence) {
    const TJson object = Decoded(
        R"({"empty":[],"bools":[true,false],"mixed":[1,2.5],"texts":["a","b"],"one":[{}],
            "late":[1,1,"x"],"nulls":[null,null],"no":1})");
    EXPECT_EQ(object.GetSequenceType("empty"), TJson::JSON_TYPE_NULL);
    EXPECT_EQ(object.GetSequenceType("bools"), TJson::JSON_TYPE_BOOLEAN);
    EXPECT_EQ(object.GetSequenceType("mixed"), TJson::JSON_TYPE_UNKNOWN);
    EXPECT_EQ(object.GetSequenceType("texts"), TJson::JSON_TYPE_STRING);
    EXPECT_EQ(object.GetSequenceType("one"), TJson::JSON_TYPE_OBJECT);
    EXPECT_EQ(object.GetSequenceType("late"), TJson::JSON_TYPE_UNKNOWN);
    EXPECT_EQ(object.GetSequenceType("nulls"), TJson::JSON_TYPE_NULL);
    EXPECT_EQ(object.GetSequenceType("no"), TJson::JSON_TYPE_UNKNOWN);
    EXPECT_EQ(object.GetSequenceType("missing"), TJson::JSON_TYPE_UNKNOWN);
}

TEST(TOstelJsonObject, CountsArrayElements) {
    const TJson object = Decoded(R"({"a":[1,2,3],"o":{"x":1},"s":"abc"})");
    EXPECT_EQ(object.GetJsonArraySize("a"), 3U);
    EXPECT_EQ(object.GetJsonArraySize("o"), 0U);
    EXPECT_EQ(object.GetJsonArraySize("s"), 0U);
    EXPECT_EQ(object.GetJsonArraySize("missing"), 0U);
}

TEST(TOstelJsonObject, IndexBeyondTheEndYieldsTheArrayItself) {
    const TJson object = Decoded(R"({"a":[1,2],"n":5})");
    void* const array = object.GetJsonObject("a", TJson::WHOLE_PROPERTY);
    EXPECT_EQ(object.GetJsonObjectType(array), TJson::JSON_TYPE_ARRAY);
    EXPECT_EQ(object.GetJsonObject("a", 5), array);
    EXPECT_EQ(object.GetJsonObject("a", 2), array);
    EXPECT_EQ(object.GetJsonValue(object.GetJsonObject("a", 1), 0), 2);
    EXPECT_EQ(object.GetJsonValue(object.GetJsonObject("n", 3), 0), 5);
    EXPECT_EQ(object.GetJsonObject("missing", 0), nullptr);
}

TEST(TOstelJsonObject, StoresNullForANullValue) {
    TJson object;
    EXPECT_EQ(object.SetJsonObject("a", nullptr), 0);
    EXPECT_EQ(Encoded(object), R"({"a":null})");
}

TEST(TOstelJsonObject, ReplacingAPropertyReleasesTheOldValue) {
    TJson object;
    json_t* const old = json_string("old");
    json_incref(old);
    object.SetJsonObject("a", old);
    object.SetPropertyValue("a", 1);
    EXPECT_EQ(old->refcount, 1U);
    json_decref(old);
}

TEST(TOstelJsonObject, AppendMakesTheArrayItLacks) {
    TJson object;
    void* array = nullptr;
    EXPECT_EQ(object.AppendJsonArray(&array, object.ToJson(1)), 0);
    EXPECT_EQ(object.AppendJsonArray(&array, object.ToJson(2)), 0);
    EXPECT_EQ(object.SetJsonObject("a", array), 0);
    EXPECT_EQ(Encoded(object), R"({"a":[1,2]})");
    void* empty = object.NewJsonArray();
    EXPECT_EQ(object.SetJsonObject("e", empty), 0);
    EXPECT_EQ(object.GetSequenceType("e"), TJson::JSON_TYPE_NULL);
}

TEST(TOstelJsonObject, AppendFailsWithoutAnArrayOrAValueAndReleasesTheValue) {
    TJson object;
    void* array = object.NewJsonArray();
    EXPECT_EQ(object.AppendJsonArray(&array, nullptr), -1);
    EXPECT_EQ(json_array_size(static_cast<json_t*>(array)), 0U);
    void* text = object.ToJson("no array");
    json_t* const value = json_integer(1);
    json_incref(value);
    EXPECT_EQ(object.AppendJsonArray(&text, value), -1);
    EXPECT_EQ(value->refcount, 1U);
    json_decref(value);
    json_decref(static_cast<json_t*>(text));
    json_decref(static_cast<json_t*>(array));
}

TEST(TOstelJsonObject, ReadsOnlyTheTypesThatConvert) {
    const TJson object = Decoded(R"({"s":"3","i":3,"r":2.5,"z":0,"t":true,"f":false,"n":null})");
    EXPECT_EQ(object.GetPropertyValue("s", 7), 7);
    EXPECT_EQ(object.GetPropertyValue("i", 7), 3);
    EXPECT_EQ(object.GetPropertyValue("r", 7), 7);
    EXPECT_EQ(object.GetPropertyValue("missing", 7), 7);
    EXPECT_EQ(object.GetPropertyValue("i", 0.5), 3.0);
    EXPECT_EQ(object.GetPropertyValue("r", 0.5), 2.5);
    EXPECT_EQ(object.GetPropertyValue("s", 0.5), 0.5);
    EXPECT_EQ(object.GetPropertyValue("t", false), true);
    EXPECT_EQ(object.GetPropertyValue("f", true), false);
    EXPECT_EQ(object.GetPropertyValue("z", true), true);
    EXPECT_EQ(object.GetPropertyValue("n", true), true);
    EXPECT_EQ(object.GetPropertyValue("s", true), true);
    EXPECT_EQ(object.GetPropertyValue("s", false), false);
    EXPECT_EQ(object.GetPropertyValue<std::string>("s", "d"), "3");
    EXPECT_EQ(object.GetPropertyValue<std::string>("i", "d"), "d");
    EXPECT_STREQ(object.GetPropertyValue<const char*>("s", "d"), "3");
    EXPECT_STREQ(object.GetPropertyValue<const char*>("i", "d"), "d");
    EXPECT_EQ(object.GetPropertyValue<unsigned short>("s", 9), 9);
    EXPECT_EQ(object.GetPropertyValue("t", 9LL), 9LL);
}

TEST(TOstelJsonObject, CutsIntegersToTheirWidth) {
    const TJson object = Decoded(R"({"big":4294967299,"ones":4294967295,"sign":2147483648,)"
                                 R"("short":65541,"min":-9223372036854775808})");
    EXPECT_EQ(object.GetPropertyValue("big", 0), 3);
    EXPECT_EQ(object.GetPropertyValue("big", 0L), 3L);
    EXPECT_EQ(object.GetPropertyValue("ones", 0), -1);
    EXPECT_EQ(object.GetPropertyValue("ones", 0L), -1L);
    EXPECT_EQ(object.GetPropertyValue("sign", 0), INT_MIN);
    EXPECT_EQ(object.GetPropertyValue("sign", 0L), long{INT_MIN});
    EXPECT_EQ(object.GetPropertyValue("big", 0LL), 4294967299LL);
    EXPECT_EQ(object.GetPropertyValue<unsigned short>("short", 0), 5);
    EXPECT_EQ(object.GetPropertyValue("min", 0LL), LLONG_MIN);
}

TEST(TOstelJsonObject, ArrayWithoutIndexYieldsTheDefault) {
    const TJson object = Decoded(R"({"a":[1,2]})");
    EXPECT_EQ(object.GetPropertyValue("a", 7), 7);
    EXPECT_EQ(object.GetPropertyValue("a", 7, 0), 1);
    EXPECT_EQ(object.GetPropertyValue("a", 7, 2), 7);
}

TEST(TOstelJsonObject, ObjectValuesAndDefaultsAreCopies) {
    const TJson object = Decoded(R"({"o":{"x":1},"i":1})");
    const TJson fallback = Decoded(R"({"d":1})");
    TJson copy = object.GetPropertyValue("o", fallback);
    copy.SetPropertyValue("x", 2);
    EXPECT_EQ(Encoded(object), R"({"o":{"x":1},"i":1})");
    TJson other = object.GetPropertyValue("i", fallback);
    EXPECT_EQ(Encoded(other), R"({"d":1})");
    other.SetPropertyValue("d", 2);
    EXPECT_EQ(Encoded(fallback), R"({"d":1})");
}

TEST(TOstelJsonObject, WritesEveryType) {
    TJson object;
    char text[] = "c";
    object.SetPropertyValue<const char*>("cp", "a");
    object.SetPropertyValue<char*>("p", text);
    object.SetPropertyValue<std::string>("s", "b");
    object.SetPropertyValue<char>("char", '\xFF');
    object.SetPropertyValue<unsigned short>("us", 65535);
    object.SetPropertyValue<unsigned int>("ui", 4294967295U);
    object.SetPropertyValue<unsigned long>("ul", 4294967295UL);
    object.SetPropertyValue<int>("i", -1);
    object.SetPropertyValue<long>("l", -2);
    object.SetPropertyValue<long long>("ll", LLONG_MIN);
    object.SetPropertyValue<double>("d", 0.5);
    object.SetPropertyValue<bool>("t", true);
    object.SetPropertyValue<bool>("f", false);
    object.SetPropertyValue<TJson>("o", Decoded(R"({"x":1})"));
    object.SetJsonObject("raw", object.ToJson("q"));
    object.SetJsonObject("raw2", object.ToJson(text));
    EXPECT_EQ(Encoded(object),
              R"({"cp":"a","p":"c","s":"b","char":-1,"us":65535,"ui":4294967295,"ul":4294967295,)"
              R"("i":-1,"l":-2,"ll":-9223372036854775808,"d":0.5,"t":true,"f":false,)"
              R"("o":{"x":1},"raw":"q","raw2":"c"})");
}

TEST(TOstelJsonObject, TextsThatAreNotUtf8BecomeNull) {
    TJson object;
    object.SetPropertyValue<std::string>("a", "\xFF");
    object.SetPropertyValue<const char*>("b", nullptr);
    EXPECT_EQ(Encoded(object), R"({"a":null,"b":null})");
}

TEST(TOstelJsonObject, NumbersThatAreNotFiniteBecomeNull) {
    TJson object;
    EXPECT_EQ(object.SetPropertyValue("a", std::numeric_limits<double>::quiet_NaN()), 0);
    EXPECT_EQ(object.SetPropertyValue("b", std::numeric_limits<double>::infinity()), 0);
    EXPECT_EQ(Encoded(object), R"({"a":null,"b":null})");
}

TEST(TOstelJsonObject, RefusesNamesThatAreNotUtf8AndReleasesTheirValues) {
    TJson object;
    json_t* const value = json_integer(1);
    json_incref(value);
    EXPECT_EQ(object.SetJsonObject("\xFF", value), -1);
    EXPECT_EQ(value->refcount, 1U);
    json_decref(value);
    EXPECT_TRUE(object.IsEmpty());
}

TEST(TOstelJsonObject, HasNoPropertyUnderANameWithNul) {
    const std::string name("a\0b", 3);
    TJson object = Decoded(R"({"a":[{"x":1}]})");
    EXPECT_FALSE(object.HasProperty(name));
    EXPECT_FALSE(object.RemoveProperty(name));
    EXPECT_EQ(object.GetPropertyType(name), TJson::JSON_TYPE_UNKNOWN);
    EXPECT_EQ(object.GetSequenceType(name), TJson::JSON_TYPE_UNKNOWN);
    EXPECT_EQ(object.GetJsonArraySize(name), 0U);
    EXPECT_EQ(object.GetJsonObject(name, 0), nullptr);
    EXPECT_EQ(Encoded(object.GetObject(name)), "");
    EXPECT_EQ(Encoded(object.GetObjectRef(name)), "");
    EXPECT_EQ(object.SetPropertyValue(name, 1), -1);
    json_t* const value = json_integer(1);
    json_incref(value);
    EXPECT_EQ(object.SetJsonObject(name, value), -1);
    EXPECT_EQ(value->refcount, 1U);
    json_decref(value);
    EXPECT_EQ(Encoded(object), R"({"a":[{"x":1}]})");
}

TEST(TOstelJsonObject, TextsWithNulKeepTheirLength) {
    TJson object;
    const std::string text("a\0b", 3);
    object.SetPropertyValue("a", text);
    EXPECT_EQ(object.GetPropertyValue<std::string>("a", ""), text);
    EXPECT_EQ(Encoded(object), R"({"a":"a\u0000b"})");
    // What it encodes cannot be read back, so nobody takes the cut text for the whole.
    EXPECT_FALSE(TJson().DecodeFromString(Encoded(object)));
}

TEST(TOstelJsonObject, SequencesKeepTheirCount) {
    const TJson object = Decoded(R"({"a":[{"x":1},5,{"x":2}],"e":[],"no":1})");
    std::vector<TJson> out(7);
    object.GetPropertySequence("a", out);
    ASSERT_EQ(out.size(), 3U);
    EXPECT_EQ(Encoded(out[0]), R"({"x":1})");
    EXPECT_EQ(Encoded(out[1]), "{}");
    EXPECT_EQ(Encoded(out[2]), R"({"x":2})");
    TJson target;
    EXPECT_EQ(target.SetPropertySequence("b", out), 0);
    EXPECT_EQ(Encoded(target), R"({"b":[{"x":1},{},{"x":2}]})");
    for (const char* name : {"e", "no", "missing"}) {
        out.resize(2);
        object.GetPropertySequence(name, out);
        EXPECT_THAT(out, IsEmpty()) << name;
    }
    EXPECT_EQ(target.SetPropertySequence("b", {}), 0);
    EXPECT_EQ(Encoded(target), R"({"b":[]})");
    EXPECT_EQ(target.SetPropertySequence("b", {TJson(), Nothing(), TJson()}), 0);
    EXPECT_EQ(Encoded(target), R"({"b":[{},{}]})");
}

TEST(TOstelJsonObject, EveryOperationBearsTheLackOfAValue) {
    TJson nothing = Nothing();
    EXPECT_TRUE(nothing.IsEmpty());
    EXPECT_FALSE(nothing.HasProperty("a"));
    EXPECT_FALSE(nothing.RemoveProperty("a"));
    EXPECT_FALSE(nothing.Clear());
    EXPECT_THAT(nothing.GetProperties(), IsEmpty());
    EXPECT_EQ(nothing.GetPropertyType("a"), TJson::JSON_TYPE_UNKNOWN);
    EXPECT_EQ(nothing.GetSequenceType("a"), TJson::JSON_TYPE_UNKNOWN);
    EXPECT_EQ(nothing.GetJsonArraySize("a"), 0U);
    EXPECT_EQ(Encoded(nothing.GetObject("a")), "");
    EXPECT_EQ(nothing.GetJsonObject("a", 0), nullptr);
    EXPECT_EQ(nothing.SetJsonObject("a", json_integer(1)), -1);
    EXPECT_EQ(Encoded(TJson(nothing)), "");
    TJson other;
    other = nothing;
    EXPECT_EQ(Encoded(other), "");
    TempDir dir;
    EXPECT_FALSE(nothing.DumpToFile(dir.File("x"), -1));
}

}  // namespace
