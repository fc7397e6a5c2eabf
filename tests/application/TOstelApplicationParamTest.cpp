// Single parameters: their codes, their replies, and dispatchers that are late, silent or dead.
#include <array>
#include <chrono>
#include <future>
#include <thread>

#include "ApplicationTest.h"
#include "TOstelJsonObject.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char* const TWO_PARAMS =
    R"({"PARAMS":[{"NAME":"Device.A","VALUE":"1"},{"NAME":"Device.B","VALUE":"2"}]})";

class TOstelApplicationParam : public ApplicationTest {
protected:
    std::string m_Value = "before";
};

TEST_F(TOstelApplicationParam, AValueIsThatOfTheFirstParameter) {
    m_Dispatcher.Answer("GET_PARAM", TWO_PARAMS);
    EXPECT_EQ(m_App.GetParam("Device.", m_Value), RC_SUCCESS);
    EXPECT_EQ(m_Value, "1");
}

TEST_F(TOstelApplicationParam, AnEmptyListIsASuccessAndLeavesTheValueAlone) {
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[]})");
    EXPECT_EQ(m_App.GetParam("Device.X", m_Value), RC_SUCCESS);
    EXPECT_EQ(m_Value, "before");
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_F(TOstelApplicationParam, AFailureLeavesTheValueAlone) {
    m_Dispatcher.Answer("GET_PARAM", TWO_PARAMS, 4);
    EXPECT_EQ(m_App.GetParam("Device.X", m_Value), RC_INVALID_PARAM_NAME);
    EXPECT_EQ(m_Value, "before");
}

TEST_F(TOstelApplicationParam, TheListReplacesWhatWasThere) {
    m_Dispatcher.Answer("GET_PARAM", TWO_PARAMS);
    TParams params = {{"x", "x"}, {"y", "y"}, {"z", "z"}};
    EXPECT_EQ(m_App.GetParam("Device.", params), RC_SUCCESS);
    EXPECT_THAT(params, ElementsAre(IsParam("Device.A", "1"), IsParam("Device.B", "2")));
}

TEST_F(TOstelApplicationParam, TheDocumentTakesTheArrayAsItCameAndKeepsItsOtherMembers) {
    m_Dispatcher.Answer("GET_PARAM",
                        R"({"X":1,"PARAMS":[{"VALUE":"1","NAME":"A","MORE":[null]},7]})");
    TOstelJsonObject result;
    result.SetPropertyValue("MINE", 1);
    result.SetPropertyValue("PARAMS", 2);
    EXPECT_EQ(m_App.GetParam("Device.", result), RC_SUCCESS);
    EXPECT_EQ(result.EncodeToString(-1),
              R"({"MINE":1,"PARAMS":[{"VALUE":"1","NAME":"A","MORE":[null]},7]})");
}

TEST_F(TOstelApplicationParam, TheDocumentGetsAnEmptyArrayWhenTheReplyHasNone) {
    for (const char* reply : {"{}", R"({"PARAMS":"text"})", R"({"PARAMS":null})", "[1]"}) {
        m_Dispatcher.Answer("GET_PARAM", reply);
        TOstelJsonObject result;
        EXPECT_EQ(m_App.GetParam("Device.", result), RC_SUCCESS) << reply;
        EXPECT_EQ(result.EncodeToString(-1), R"({"PARAMS":[]})") << reply;
    }
}

TEST_F(TOstelApplicationParam, ADocumentIsLeftAloneByAFailure) {
    m_Dispatcher.Answer("GET_PARAM", TWO_PARAMS, 5);
    TOstelJsonObject result;
    EXPECT_EQ(m_App.GetParam("Device.", result), RC_INVALID_PARAM_VALUE);
    EXPECT_TRUE(result.IsEmpty());
}

TEST_F(TOstelApplicationParam, ADocumentWithoutAValueCannotTakeTheParameters) {
    m_Dispatcher.Answer("GET_PARAM", TWO_PARAMS);
    TOstelJsonObject result;
    ASSERT_FALSE(result.DecodeFromString("{"));
    EXPECT_EQ(m_App.GetParam("Device.", result), RC_RUNTIME_ERROR);
    EXPECT_EQ(RecordingLog::Texts(2).size(), 1U);
}

TEST_F(TOstelApplicationParam, SetParamDoesNotExamineTheReply) {
    for (const char* reply : {"", "{", "no document"}) {
        m_Dispatcher.Answer("SET_PARAM", reply);
        EXPECT_EQ(m_App.SetParam("Device.X", "1", true), RC_SUCCESS);
    }
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

// Kept: the data-model service answers COMMIT in its own codes and everything else in ours.
TEST_F(TOstelApplicationParam, OnlyCommitMapsItsCode) {
    constexpr std::array<int, 13> codes = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, -1, -5, 1000000};
    constexpr std::array<int, 13> mapped = {0, -1, 3, 1, 2, 4, 5, 6, 7, -1, -1, -1, -1};
    for (std::size_t i = 0; i < codes.size(); ++i) {
        const int code = codes.at(i);
        m_Dispatcher.Answer("COMMIT", "", code);
        m_Dispatcher.Answer("SET_PARAM", "", code);
        m_Dispatcher.Answer("GET_PARAM", TWO_PARAMS, code);
        EXPECT_EQ(m_App.Commit(), mapped.at(i)) << code;
        EXPECT_EQ(m_App.SetParam("Device.X", "1", false), code);
        EXPECT_EQ(m_App.GetParam("Device.X", m_Value), code);
    }
}

TEST_F(TOstelApplicationParam, AReplyWithoutACodeIsAFailure) {
    m_Dispatcher.Answer("GET_PARAM", TWO_PARAMS, 0, TManner::ANSWER_TEXT);
    EXPECT_EQ(m_App.GetParam("Device.X", m_Value), RC_FAILURE);
    EXPECT_EQ(m_Value, "before");
}

TEST_F(TOstelApplicationParam, AnErrorOfTheDispatcherIsLoggedAndAFailure) {
    m_Dispatcher.Answer("GET_PARAM", "100% refused", 0, TManner::ANSWER_ERROR);
    EXPECT_EQ(m_App.GetParam("Device.X", m_Value), RC_FAILURE);
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre("100% refused"));
}

TEST_F(TOstelApplicationParam, ALateAnswerIsAFailureAndNotTakenForTheNextOne) {
    SetTimeout(1);
    m_Dispatcher.Answer("GET_PARAM", TWO_PARAMS, 0, TManner::KEEP_SILENT);
    EXPECT_EQ(m_App.GetParam("Device.X", m_Value), RC_FAILURE);
    EXPECT_EQ(RecordingLog::Texts(2).size(), 1U);
    ASSERT_TRUE(m_Dispatcher.WaitForRequest("GET_PARAM"));
    m_Dispatcher.Release();
    SetTimeout(60);
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[{"NAME":"Device.X","VALUE":"next"}]})");
    EXPECT_EQ(m_App.GetParam("Device.X", m_Value), RC_SUCCESS);
    EXPECT_EQ(m_Value, "next");
}

TEST_F(TOstelApplicationParam, ADispatcherThatDiesInMidCallFailsTheCallAtOnce) {
    m_Dispatcher.Answer("SET_PARAM", "", 0, TManner::DIE);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(m_App.SetParam("Device.X", "1", true), RC_FAILURE);
    EXPECT_EQ(m_App.SetParam("Device.X", "1", true), RC_FAILURE);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(RecordingLog::Texts(2).size(), 2U);
}

TEST_F(TOstelApplicationParam, ADispatcherThatComesBackAfterAMidCallDeathServesTheNextCall) {
    m_Dispatcher.Answer("SET_PARAM", "", 0, TManner::DIE);
    EXPECT_EQ(m_App.SetParam("Device.X", "1", true), RC_FAILURE);
    ScriptedDispatcher next;
    next.Answer("SET_PARAM", "{}");
    EXPECT_EQ(m_App.SetParam("Device.X", "1", true), RC_SUCCESS);
}

TEST_F(TOstelApplicationParam, ABusThatGoesAwayFailsTheWaitingCallAtOnce) {
    m_Dispatcher.Answer("GET_PARAM", TWO_PARAMS, 0, TManner::KEEP_SILENT);
    const auto start = std::chrono::steady_clock::now();
    auto code = std::async(std::launch::async, [this] {
        std::string value;
        return m_App.GetParam("Device.X", value);
    });
    ASSERT_TRUE(m_Dispatcher.WaitForRequest("GET_PARAM"));
    m_Bus.Kill();
    EXPECT_NE(code.get(), RC_SUCCESS);
    EXPECT_NE(m_App.GetParam("Device.X", m_Value), RC_SUCCESS);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(m_Value, "before");
    EXPECT_GE(RecordingLog::Texts(2).size(), 2U);
}

TEST_F(TOstelApplicationParam, ThreadsMayAskAtOnce) {
    constexpr int rounds = 100;
    m_Dispatcher.Answer("GET_PARAM", TWO_PARAMS);
    m_Dispatcher.Answer("SET_PARAM", "", 7);
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this] {
            for (int round = 0; round < rounds; ++round) {
                std::string value;
                EXPECT_EQ(m_App.GetParam("Device.", value), RC_SUCCESS);
                EXPECT_EQ(value, "1");
                EXPECT_EQ(m_App.SetParam("Device.A", "1", false), RC_NOT_SUPPORTED);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
