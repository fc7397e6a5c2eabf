// The flat interface's values of any length.
#include "OstelAppLibTest.h"
#include "WaitUntil.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class OstelAppLibLongValues : public OstelAppLib {};

TEST_F(OstelAppLibLongValues, HaveAnyLength) {
    const std::string value(8 * 1024 * 1024, 'v');
    m_Dispatcher.Answer("GET_LONG_PARAM", R"({"VALUE":")" + value + R"("})");
    m_Dispatcher.Answer("SET_LONG_PARAM", "{}");
    auto request = Named<tOstelAppLibLongParamRequest>("Device.Long");
    ASSERT_EQ(ostelAppLibGetLongParam(&request), RC_SUCCESS);
    EXPECT_EQ(request.size, value.size() + 1);
    EXPECT_EQ(request.value, value);
    EXPECT_EQ(ostelAppLibSetLongParam(&request, true), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.LastText("SET_LONG_PARAM"),
              R"({"NAME":"Device.Long","VALUE":")" + value + R"(","COMMIT":true})");
    ostelAppLibReleaseLongParamRequest(&request);
    EXPECT_EQ(request.value, nullptr);
    EXPECT_EQ(request.size, 0U);
    m_Dispatcher.Answer("GET_LONG_PARAM", "{}");
    EXPECT_EQ(ostelAppLibGetLongParam(&request), RC_SUCCESS);
    EXPECT_EQ(request.size, 1U);
    ostelAppLibReleaseLongParamRemote(&request);
    m_Dispatcher.Answer("GET_LONG_PARAM", "nonsense");
    EXPECT_EQ(ostelAppLibGetLongParam(&request), RC_RUNTIME_ERROR);
}

// The buffers before are the caller's own: one that is kept must stay what it is.
TEST_F(OstelAppLibLongValues, ALongValueReadBeforeIsLeftToTheCaller) {
    m_Dispatcher.Answer("GET_LONG_PARAM", R"({"VALUE":"the first of two long values"})");
    auto request = Named<tOstelAppLibLongParamRequest>("Device.Long");
    ASSERT_EQ(ostelAppLibGetLongParam(&request), RC_SUCCESS);
    tOstelAppLibLongParamRequest kept = request;
    m_Dispatcher.Answer("GET_LONG_PARAM", R"({"VALUE":"and this is the second one of"})");
    ASSERT_EQ(ostelAppLibGetLongParam(&request), RC_SUCCESS);
    EXPECT_NE(request.value, kept.value);
    EXPECT_STREQ(kept.value, "the first of two long values");
    ostelAppLibReleaseLongParamRequest(&kept);
    ostelAppLibReleaseLongParamRequest(&request);
}

TEST_F(OstelAppLibLongValues, ALongValueEndsWithItsNulOrWithItsBuffer) {
    struct TCase {
        std::string buffer;
        std::uint32_t size;
        std::string sent;
        bool warned;
    };
    const std::vector<TCase> cases{{std::string("abc\0", 4), 4, "abc", false},
                                   {std::string("abc\0xyz", 7), 7, "abc", false},
                                   {std::string("abc\0", 4), 100, "abc", false},
                                   // What GetFileRemote has fetched has no NUL.
                                   {"abc", 3, "abc", true},
                                   // An application's own text, whose size it did not tell.
                                   {std::string("abc\0", 4), 0, "abc", false},
                                   {std::string(1, '\0'), 0, "", false},
                                   {std::string(1, '\0'), 1, "", false}};
    m_Dispatcher.Answer("SET_LONG_PARAM", "{}");
    for (const TCase& test : cases) {
        RecordingLog::Clear();
        std::vector<char> buffer(test.buffer.begin(), test.buffer.end());
        auto request = Named<tOstelAppLibLongParamRequest>("L");
        request.value = buffer.data();
        request.size = test.size;
        EXPECT_EQ(ostelAppLibSetLongParam(&request, true), RC_SUCCESS);
        EXPECT_EQ(m_Dispatcher.LastText("SET_LONG_PARAM"),
                  R"({"NAME":"L","VALUE":")" + test.sent + R"(","COMMIT":true})");
        EXPECT_EQ(RecordingLog::Count(3, "ostelAppLibSetLongParam: 3 bytes without a NUL"),
                  test.warned ? 1 : 0);
    }
}

TEST_F(OstelAppLibLongValues, ABufferOfNoBytesIsAnEmptyLongValue) {
    m_Dispatcher.Answer("SET_LONG_PARAM", "{}");
    auto request = Named<tOstelAppLibLongParamRequest>("L");
    ostelAppLibAllocateLongParamRequest(&request, 0);
    EXPECT_EQ(ostelAppLibSetLongParam(&request, true), RC_SUCCESS);
    EXPECT_EQ(m_Dispatcher.LastText("SET_LONG_PARAM"), R"({"NAME":"L","VALUE":"","COMMIT":true})");
    ostelAppLibReleaseLongParamRequest(&request);
    EXPECT_EQ(ostelAppLibSetLongParam(&request, true), RC_INVALID_ARGUMENT);
}

TEST_F(OstelAppLibLongValues, WhatIsThrownInsideIsLoggedAndARuntimeError) {
    auto request = Named<tOstelAppLibLongParamRequest>("L");
    m_Dispatcher.Answer("GET_LONG_PARAM", "");
    EXPECT_EQ(ostelAppLibGetLongParam(&request), RC_RUNTIME_ERROR);
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre("The reply is empty"));
    EXPECT_EQ(request.value, nullptr);
}

TEST_F(OstelAppLibLongValues, AreRuntimeErrorsWithoutABus) {
    auto request = Named<tOstelAppLibLongParamRequest>("L");
    char value[] = "1";
    request.value = value;
    m_Bus.Kill();
    // The first of them may still be answered, by the loss of the bus.
    ASSERT_TRUE(
        WaitUntil([&] { return ostelAppLibSetLongParam(&request, true) == RC_RUNTIME_ERROR; }));
    EXPECT_EQ(ostelAppLibGetLongParam(&request), RC_RUNTIME_ERROR);
    EXPECT_EQ(request.value, value);
}

TEST_F(OstelAppLibLongValues, ALongValueThatIsNoTextIsEmpty) {
    auto request = Named<tOstelAppLibLongParamRequest>("L");
    for (const char* reply : {"{}", "[]", R"({"VALUE":5})", R"({"VALUE":null})",
                              R"({"VALUE":["v"]})", R"({"VALUE":{"VALUE":"v"}})"}) {
        m_Dispatcher.Answer("GET_LONG_PARAM", reply);
        ASSERT_EQ(ostelAppLibGetLongParam(&request), RC_SUCCESS) << reply;
        EXPECT_EQ(request.size, 1U) << reply;
        EXPECT_STREQ(request.value, "") << reply;
        ostelAppLibReleaseLongParamRequest(&request);
    }
    EXPECT_EQ(m_Dispatcher.LastText("GET_LONG_PARAM"), R"({"NAME":"L"})");
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_F(OstelAppLibLongValues, ALongValuesReplyThatIsNoDocumentIsARuntimeError) {
    auto request = Named<tOstelAppLibLongParamRequest>("L");
    for (const std::string& reply :
         {std::string("{"), std::string("7"), std::string(100000, '['),
          std::string(R"({"VALUE":"\u0000"})"), std::string(10 << 20, ' ')}) {
        RecordingLog::Clear();
        m_Dispatcher.Answer("GET_LONG_PARAM", reply);
        EXPECT_EQ(ostelAppLibGetLongParam(&request), RC_RUNTIME_ERROR) << reply.substr(0, 40);
        EXPECT_EQ(request.value, nullptr);
        EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(StartsWith("line ")));
    }
}

}  // namespace
