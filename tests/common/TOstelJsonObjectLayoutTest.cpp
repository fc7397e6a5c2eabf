// The binary interface: the members and symbols that applications were built against.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "BinaryLayout.h"
#include "ChildProcess.h"
#include "TOstelJsonObject.h"

struct TJsonPlace {
    friend std::size_t OffsetOf(TJsonPlace);
};
struct TErrorTextPlace {
    friend std::size_t OffsetOf(TErrorTextPlace);
};

template struct MemberOffset<TJsonPlace, &TOstelJsonObject::m_Json>;
template struct MemberOffset<TErrorTextPlace, &TOstelJsonObject::m_ErrorText>;

namespace {

// The types that a template member of the class is there for, to link with.
std::set<std::string> TypesOf(const std::string& member) {
    const std::string symbols =
        RunProgram({"nm", "-DC", "--defined-only", OSTEL_APP_LIBRARY}).output;
    const std::regex offered(" TOstelJsonObject::" + member + R"(<(.*)>\()");
    std::set<std::string> types;
    for (std::sregex_iterator at(symbols.begin(), symbols.end(), offered), end; at != end; ++at) {
        types.insert((*at)[1]);
    }
    return types;
}

// What is not offered must not be there to link with, or callers would come to rely on it.
TEST(TOstelJsonObjectLayout, OffersExactlyItsTypes) {
    const std::string text =
        "std::__cxx11::basic_string<char, std::char_traits<char>, "
        "std::allocator<char> > ";
    EXPECT_THAT(
        TypesOf("GetJsonValue"),
        testing::UnorderedElementsAre("TOstelJsonObject", "bool", "char const*", text,
                                      "unsigned short", "int", "long", "long long", "double"));
    EXPECT_THAT(TypesOf("ToJson"), testing::UnorderedElementsAre(
                                       "TOstelJsonObject", "bool", "char const*", "char*", text,
                                       "char", "unsigned short", "unsigned int", "unsigned long",
                                       "int", "long", "long long", "double"));
}

TEST(TOstelJsonObjectLayout, KeepsTheOrderOfItsMembers) {
    EXPECT_EQ(OffsetOf(TJsonPlace()), sizeof(void*));
    EXPECT_EQ(OffsetOf(TErrorTextPlace()), 2 * sizeof(void*));
    EXPECT_EQ(sizeof(TOstelJsonObject), 2 * sizeof(void*) + sizeof(std::string));
}

}  // namespace
